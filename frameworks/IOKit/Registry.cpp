#include "IOKit/Registry.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>

#include "CoreFoundation/CallOut.h"
#include "IOKit/ObjectTable.h"
#include "Support/PerThread.h"

namespace frameworks {

// The calling thread's registry, if it has one. Goes with the thread; that of the main thread
// stays, because others may still run while the process ends.
struct Registry::OfThread {
    ~OfThread() {
        if (registry != nullptr && gettid() != getpid()) {
            registry->Invalidate();
            registry->Release();
        }
    }

    Registry* registry = nullptr;
};

Registry& Registry::OfThisThread() {
    auto& ofThread = PerThread<OfThread>();
    if (ofThread.registry == nullptr) {
        ofThread.registry = new Registry(std::make_unique<DeviceMonitor>());
    }
    return *ofThread.registry;
}

Registry::Registry(std::unique_ptr<DeviceMonitor> itsMonitor)
    : __CFRunLoopSource(itsMonitor->Descriptor(), IdentityOf(itsMonitor->Descriptor()), EPOLLIN),
      monitor(std::move(itsMonitor)) {}

IONotificationPort& Registry::NewPort() {
    // cppcheck-suppress returnTempReference ; the list returns a reference to its element
    return ports.emplace_back(IONotificationPort{this});
}

io_iterator_t Registry::AddNotification(Wanted wanted, bool matches,
                                        IOServiceMatchingCallback callBack, void* userData) {
    if (!hasLooked) {
        // The monitor has been listening since before, so nothing falls in between.
        hasLooked = true;
        Look();
    }
    const auto iterator = std::make_shared<ServiceIterator>();
    if (matches && wanted == Wanted::kArrivals) {
        for (const auto& [path, entry] : known) {
            iterator->Add(entry);
        }
    }
    const io_iterator_t number = ObjectTable::Get().Add(iterator);
    notifications.push_back({wanted, callBack, userData, iterator, number, matches});
    return number;
}

void Registry::Ready(std::uint32_t /*events*/) {
    for (int count = 0; count < kChangesAtOnce; ++count) {
        const std::optional<DeviceMonitor::Change> change = monitor->Next();
        if (!change) return;
        // What comes before anybody asked is found when somebody does.
        if (!hasLooked) continue;
        switch (change->kind) {
            case DeviceMonitor::Kind::kCame:
                Add(change->path);
                break;
            case DeviceMonitor::Kind::kWent:
                Remove(change->path);
                break;
            case DeviceMonitor::Kind::kLost:
                Look();
                break;
        }
    }
}

void Registry::TimedOut() {
    Look();
}

void Registry::Look() {
    const std::optional<std::vector<std::string>> paths = PathsOfDevices();
    if (!paths) {
        LookAgainLater();
        return;
    }
    std::vector<std::string> gone;
    for (const auto& [path, entry] : known) {
        if (std::find(paths->begin(), paths->end(), path) == paths->end()) {
            gone.push_back(path);
        }
    }
    for (const std::string& path : gone) {
        Remove(path);
    }
    for (const std::string& path : *paths) {
        Add(path);
    }
}

void Registry::LookAgainLater() {
    CallAfter(kUntilTheNextLook);
}

void Registry::Add(const std::string& path) {
    const Entry entry = RegistryEntry::Read(path);
    if (!entry) {
        LookAgainLater();
        return;
    }
    const auto found = known.find(path);
    if (found != known.end()) {
        // Several things are said of a device, up to the moment when it goes and its number cannot
        // be read any more; another number is another device.
        if (entry->Number().empty() || entry->Number() == found->second->Number()) return;
        Remove(path);
    }
    known[path] = entry;
    Tell(Wanted::kArrivals, entry);
}

void Registry::Remove(const std::string& path) {
    const auto found = known.find(path);
    if (found == known.end()) return;
    const Entry entry = found->second;
    known.erase(found);
    Tell(Wanted::kDepartures, entry);
}

void Registry::Tell(Wanted wanted, const Entry& entry) {
    ++telling;
    // Those that are added meanwhile have seen the change.
    const std::size_t count = notifications.size();
    for (std::size_t index = 0; index < count; ++index) {
        // A copy: the list may move.
        const Notification notification = notifications[index];
        const std::shared_ptr<ServiceIterator> iterator = notification.iterator.lock();
        if (notification.wanted != wanted || !notification.matches || !iterator) continue;
        iterator->Add(entry);
        if (iterator->TakeNotice()) {
            CallOutToTheClient(notification.callBack, notification.userData, notification.number);
        }
    }
    --telling;
    DropReleased();
}

void Registry::DropReleased() {
    if (telling != 0) return;
    notifications.erase(std::remove_if(notifications.begin(), notifications.end(),
                                       [](const Notification& notification) {
                                           return notification.iterator.expired();
                                       }),
                        notifications.end());
}

std::string Registry::Describe() const {
    return DescribeHead() + "{" + std::to_string(known.size()) + " devices}";
}

}  // namespace frameworks
