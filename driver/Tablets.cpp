#include "driver/Tablets.h"

#include <libudev.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "driver/Say.h"

namespace driver {
namespace {

// The daemon speaks when it has given the device its owner and rights. Without the daemon libudev
// would listen to nobody.
const char* WhomToListenTo() {
    return access("/run/udev/control", F_OK) == 0 ? "udev" : "kernel";
}

struct FreeDevice {
    void operator()(udev_device* device) const { udev_device_unref(device); }
};

}  // namespace

void Tablets::FreeContext::operator()(udev* freed) const {
    udev_unref(freed);
}

void Tablets::FreeMonitor::operator()(udev_monitor* freed) const {
    udev_monitor_unref(freed);
}

Tablets::Tablets(Loop& itsLoop, TapServer& itsServer, Screen itsScreen)
    : loop(itsLoop), server(itsServer), screen(itsScreen) {
    // Before looking, so that nothing falls in between.
    Listen();
    Look();
    if (tablets.empty()) {
        Say("there is no tablet that can be read; waiting for one");
    }
}

Tablets::~Tablets() {
    if (monitor) {
        loop.Forget(udev_monitor_get_fd(monitor.get()));
    }
}

void Tablets::Listen() {
    context.reset(udev_new());
    if (context) {
        monitor.reset(udev_monitor_new_from_netlink(context.get(), WhomToListenTo()));
    }
    if (!monitor ||
        udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "input", nullptr) < 0 ||
        udev_monitor_enable_receiving(monitor.get()) < 0) {
        monitor.reset();
        Say("tablets that are plugged in later will not be noticed: udev cannot be heard");
        return;
    }
    loop.Watch(udev_monitor_get_fd(monitor.get()), EPOLLIN, [this](std::uint32_t) { Hear(); });
}

void Tablets::Hear() {
    errno = 0;
    const std::unique_ptr<udev_device, FreeDevice> device(
        udev_monitor_receive_device(monitor.get()));
    if (!device) {
        if (errno == ENOBUFS) {
            Look();
        }
        return;
    }
    const char* const action = udev_device_get_action(device.get());
    const std::string folder = udev_device_get_syspath(device.get());
    if (action != nullptr && std::strcmp(action, "remove") == 0) {
        Close(folder);
    } else if (const std::optional<FoundTablet> found = TabletAt(folder)) {
        Open(*found);
    }
}

void Tablets::Look() {
    std::set<std::string> there;
    for (const FoundTablet& found : FindTablets()) {
        there.insert(found.folder);
        Open(found);
    }
    for (auto tablet = tablets.begin(); tablet != tablets.end();) {
        const auto next = std::next(tablet);
        if (there.count(tablet->first) == 0) {
            Close(tablet->first);
        }
        tablet = next;
    }
}

void Tablets::Open(const FoundTablet& found) {
    if (tablets.count(found.folder) != 0) return;
    int error = 0;
    std::unique_ptr<Tablet> tablet = Tablet::Open(
        found.node, loop, server, screen, [this, folder = found.folder] { Close(folder); }, error);
    if (!tablet) {
        Say(found.node + " (" + found.name +
            ") cannot be read: " + WhyUnreadable(found.node, error));
        return;
    }
    Say(found.node + " (" + found.name + ") is read");
    tablets[found.folder] = std::move(tablet);
}

void Tablets::Close(const std::string& folder) {
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): it may be in what goes here
    const std::string gone = folder;
    if (tablets.erase(gone) != 0) {
        Say(gone.substr(gone.rfind('/') + 1) + " has gone");
    }
}

}  // namespace driver
