// Waits for descriptors and calls whoever asked for them, on one thread.
//
// Owner: main; it outlives everybody who watches. Threads: one. Failure: a loop that the system
// gives no descriptor for, or that cannot wait, throws std::system_error; the program has nothing
// left to do then.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

#include "driver/Descriptor.h"

namespace driver {

class Loop {
  public:
    using Handler = std::function<void(std::uint32_t events)>;

    Loop();

    // EVENTS are those of epoll. The handler may do anything, such as stop watching.
    void Watch(int descriptor, std::uint32_t events, Handler handler);
    // Other events for a descriptor that is watched.
    void Change(int descriptor, std::uint32_t events);
    // Before the descriptor is closed.
    void Forget(int descriptor);

    // Until Stop is called.
    void Run();
    void Stop() { stopped = true; }

  private:
    const Descriptor set;
    std::unordered_map<int, std::shared_ptr<const Handler>> handlers;
    bool stopped = false;
};

}  // namespace driver
