#include "Worker.h"

#include <exception>

Worker::Worker(World& itsWorld, std::string itsName)
    : world(itsWorld), random(itsWorld.options.seed, itsName), name(std::move(itsName)) {}

void Worker::Start() {
    GoesOn();
    thread = std::thread([this] { Run(); });
}

void Worker::Run() {
    try {
        while (!world.verdict.Ended()) {
            GoesOn();
            bool rest = false;
            {
                const std::lock_guard<std::mutex> lock(mutex);
                rest = settle;
            }
            if (rest) {
                Rest();
            } else {
                Step();
            }
        }
    } catch (const std::exception& failure) {
        world.verdict.Fail(name + ": " + failure.what());
    }
    const std::lock_guard<std::mutex> lock(mutex);
    settled = true;
    changed.notify_all();
}

void Worker::Rest() {
    PartWithAll();
    std::unique_lock<std::mutex> lock(mutex);
    settled = true;
    changed.notify_all();
    changed.wait(lock, [this] { return !settle || world.verdict.Ended(); });
    settled = false;
}

void Worker::BeginToSettle() {
    const std::lock_guard<std::mutex> lock(mutex);
    settle = true;
}

bool Worker::WaitUntilSettled(std::chrono::seconds patience) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, patience, [this] { return settled; });
}

void Worker::Resume() {
    const std::lock_guard<std::mutex> lock(mutex);
    settle = false;
    GoesOn();
    changed.notify_all();
}

void Worker::Stop() {
    Resume();
    if (thread.joinable()) {
        thread.join();
    }
}

std::chrono::steady_clock::duration Worker::IdleFor() const {
    return std::chrono::steady_clock::now().time_since_epoch() -
           std::chrono::steady_clock::duration(lastBeat.load());
}
