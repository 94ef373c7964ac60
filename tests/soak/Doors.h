// Nobody may connect while a client that gets pen records has gone and no other has taken its
// place: whoever got its connection number would get them. Held by each connection from its
// beginning until the service has certainly accepted it. Threads: all.
#pragma once

#include <condition_variable>
#include <mutex>

class Doors {
  public:
    bool TryEnter() {
        const std::lock_guard<std::mutex> lock(mutex);
        if (closed) {
            return false;
        }
        ++entering;
        return true;
    }
    void Enter() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return !closed || abandoned; });
        ++entering;
    }
    void Leave() {
        const std::lock_guard<std::mutex> lock(mutex);
        --entering;
        changed.notify_all();
    }
    // Returns when nobody is between the doors.
    void Close() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return !closed || abandoned; });
        closed = true;
        changed.wait(lock, [this] { return entering == 0 || abandoned; });
    }
    void Open() {
        const std::lock_guard<std::mutex> lock(mutex);
        closed = false;
        changed.notify_all();
    }

    // The run is over: nobody waits any more for somebody who may never come through.
    void Abandon() {
        const std::lock_guard<std::mutex> lock(mutex);
        abandoned = true;
        changed.notify_all();
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    int entering = 0;
    bool closed = false;
    bool abandoned = false;
};

// Between the doors as long as it lives.
class BetweenDoors {
  public:
    explicit BetweenDoors(Doors& itsDoors) : doors(itsDoors) { doors.Enter(); }
    BetweenDoors(const BetweenDoors&) = delete;
    BetweenDoors& operator=(const BetweenDoors&) = delete;
    ~BetweenDoors() { doors.Leave(); }

  private:
    Doors& doors;
};

class DoorsClosed {
  public:
    explicit DoorsClosed(Doors& itsDoors) : doors(itsDoors) { doors.Close(); }
    DoorsClosed(const DoorsClosed&) = delete;
    DoorsClosed& operator=(const DoorsClosed&) = delete;
    ~DoorsClosed() { doors.Open(); }

  private:
    Doors& doors;
};
