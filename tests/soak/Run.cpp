#include "Run.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "support/Waiting.h"

namespace {

// What is kept of memory that has been given back differs from time to time; a leak of a byte in
// every message is more than that.
constexpr long kMostGrowth = 2048;
constexpr std::chrono::minutes kBetweenLooks{5};

double Seconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

std::string Listed(const std::vector<std::string>& descriptors) {
    std::string text;
    for (const std::string& descriptor : descriptors) {
        text += "\n  " + descriptor;
    }
    return text;
}

}  // namespace

Run::Run(World& itsWorld)
    : world(itsWorld),
      devices(world),
      commands(world, devices),
      channels(world),
      pen(world),
      faults(world) {}

// In the order in which they settle: the devices need somebody with the key until then.
std::vector<Worker*> Run::Workers() {
    return {&faults, &devices, &commands, &channels, &pen};
}

void Run::Go() {
    for (Worker* const worker : Workers()) {
        worker->Start();
    }
    const Clock::time_point end = start + world.options.duration;
    const auto warm =
        std::min<Clock::duration>(std::chrono::minutes(2), world.options.duration / 3);
    try {
        Watch(start + warm);
        first = Settle();
        Resume();
        for (Clock::time_point next = Clock::now() + kBetweenLooks; next < end - kBetweenLooks / 2;
             next += kBetweenLooks) {
            Watch(next);
            CompareWithTheFirst(Settle());
            Resume();
        }
        Watch(end);
        while (!faults.HasInjectedAll() && !world.verdict.Ended()) {
            Watch(Clock::now() + std::chrono::milliseconds(100));
        }
        CompareWithTheFirst(Settle());
    } catch (const std::exception& failure) {
        world.verdict.Fail(failure.what());
    }
    world.verdict.End();
    world.doors.Abandon();
    for (Worker* const worker : Workers()) {
        worker->Resume();
        if (!worker->WaitUntilSettled(world.options.patience * 6)) {
            // It waits in the system for a service that does nothing any more.
            std::cout << "Failed (seed " << world.options.seed << "): " << world.verdict.Reason()
                      << "\n(and " << worker->Name() << " could not be ended)" << std::endl;
            std::_Exit(1);
        }
    }
    for (Worker* const worker : Workers()) {
        worker->Stop();
    }
}

void Run::Watch(Clock::time_point end) {
    // Installing waits for fair weather, and everything for a removal.
    const auto longest = world.options.patience * 6;
    while (Clock::now() < end && !world.verdict.Ended()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        world.ShortenLogs();
        if (!world.service->Running()) {
            world.verdict.Fail("the service has ended by itself");
        }
        for (Worker* const worker : Workers()) {
            if (worker->IdleFor() > longest) {
                world.verdict.Fail(worker->Name() + " do not go on");
            }
        }
    }
}

Health Run::Settle() {
    const auto patience = world.options.patience * 6;
    // Whoever disturbs goes first, and then who needs the others.
    for (Worker* const worker : Workers()) {
        worker->BeginToSettle();
        if (!worker->WaitUntilSettled(patience) || world.verdict.Failed()) {
            throw Failed(worker->Name() + " do not settle");
        }
    }
    // A client may be gone before the service has noticed.
    Health health = HealthOf(world);
    const Deadline deadline(world.options.patience);
    while (first.threads != 0 && health.descriptors.size() > first.descriptors.size() &&
           !deadline.Passed()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        health = HealthOf(world);
    }
    std::cout << "  after " << static_cast<int>(Seconds(Clock::now() - start)) << " s: " << health
              << std::endl;
    return health;
}

void Run::Resume() {
    for (Worker* const worker : Workers()) {
        worker->Resume();
    }
}

void Run::CompareWithTheFirst(const Health& now) {
    if (now.descriptors.size() != first.descriptors.size()) {
        world.verdict.Fail("descriptors leak:" + Listed(now.descriptors) + "\nafter" +
                           Listed(first.descriptors));
    }
    if (now.threads != first.threads) {
        world.verdict.Fail("threads leak: " + std::to_string(now.threads) + " after " +
                           std::to_string(first.threads));
    }
    // With a sanitizer memory is kept on purpose; it finds leaks itself, at the end.
    if (!kSanitized && now.memory > first.memory + kMostGrowth) {
        world.verdict.Fail("memory leaks: " + std::to_string(now.memory) + " KiB after " +
                           std::to_string(first.memory) + " KiB");
    }
}
