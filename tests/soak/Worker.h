// A load: one thread that does a step of its work after the other, and can be told to settle: to
// part with all its clients, so that what the service then holds is its own. Whatever it throws
// ends the run.
//
// The thread belongs to the worker. Settle, Resume, Stop and IdleFor are for the run's main thread.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "World.h"

class Worker {
  public:
    Worker(World& itsWorld, std::string itsName);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    virtual ~Worker() = default;

    void Start();
    // All begin to settle before one is waited for: they may need each other.
    void BeginToSettle();
    // False when it takes longer than that.
    bool WaitUntilSettled(std::chrono::seconds patience);
    void Resume();
    void Stop();
    // How long ago it last said that it goes on.
    std::chrono::steady_clock::duration IdleFor() const;
    const std::string& Name() const { return name; }

  protected:
    // A small piece of work.
    virtual void Step() = 0;
    // Finish what is under way and part with every client.
    virtual void PartWithAll() = 0;

    void GoesOn() { lastBeat = std::chrono::steady_clock::now().time_since_epoch().count(); }

    World& world;
    Random random;

  private:
    void Run();
    void Rest();

    const std::string name;
    std::thread thread;
    std::atomic<std::chrono::steady_clock::rep> lastBeat{0};
    std::mutex mutex;
    std::condition_variable changed;
    bool settle = false;
    bool settled = false;
};
