// A thread's view of the USB devices: those that are there, who wants to hear of changes, and the
// run-loop source that brings them.
//
// One for all ports of a thread, so that everybody is told of one change before the next is looked
// at. A change is told by calling back whoever has drained his iterator; the callback may do
// anything, such as ask for further notices or run the loop.
//
// Owner: the thread, and its run loop while the source is on it. Threads: its own. Cost: a turn of
// the loop looks at up to kChangesAtOnce changes. Failure: without a way to hear of changes the
// devices are those that were there at first; what cannot be looked at for a lack of descriptors or
// memory is looked at again later, on the loop.
#pragma once

#include <IOKit/IOKitLib.h>

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CoreFoundation/RunLoopSource.h"
#include "IOKit/DeviceMonitor.h"
#include "IOKit/ServiceIterator.h"

namespace frameworks {
class Registry;
}

struct IONotificationPort {
    frameworks::Registry* registry;
};

namespace frameworks {

class Registry final : public __CFRunLoopSource {
  public:
    static constexpr int kChangesAtOnce = 32;
    static constexpr std::chrono::milliseconds kUntilTheNextLook{500};

    // Lent.
    static Registry& OfThisThread();

    // Lent; lives as long as the registry.
    IONotificationPort& NewPort();

    enum class Wanted { kArrivals, kDepartures };
    // The number of an iterator that begins with what is there, for arrivals. Nothing will ever be
    // on it without MATCHES.
    io_iterator_t AddNotification(Wanted wanted, bool matches, IOServiceMatchingCallback callBack,
                                  void* userData);

    std::string Describe() const override;

  private:
    using Entry = ServiceIterator::Entry;
    struct Notification {
        Wanted wanted;
        IOServiceMatchingCallback callBack;
        void* userData;
        // Gone when the client has released it.
        std::weak_ptr<ServiceIterator> iterator;
        io_iterator_t number;
        bool matches;
    };
    struct OfThread;

    explicit Registry(std::unique_ptr<DeviceMonitor> itsMonitor);

    void Ready(std::uint32_t events) override;
    void TimedOut() override;
    void Look();
    void LookAgainLater();
    void Add(const std::string& path);
    void Remove(const std::string& path);
    void Tell(Wanted wanted, const Entry& entry);
    void DropReleased();

    const std::unique_ptr<DeviceMonitor> monitor;
    bool hasLooked = false;
    std::map<std::string, Entry> known;
    std::vector<Notification> notifications;
    // How many calls of Tell there are within each other.
    int telling = 0;
    // They do not move when others come.
    std::deque<IONotificationPort> ports;
};

}  // namespace frameworks
