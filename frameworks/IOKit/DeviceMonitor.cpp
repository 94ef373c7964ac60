#include "IOKit/DeviceMonitor.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Support/DynamicLibrary.h"

struct udev_device;

namespace frameworks {
namespace {

// The functions of libudev that are used here, with their own names.
struct Udev {
    DynamicLibrary library{"libudev.so.1"};
    udev* (*udev_new)();
    udev* (*udev_unref)(udev*);
    udev_monitor* (*udev_monitor_new_from_netlink)(udev*, const char* name);
    udev_monitor* (*udev_monitor_unref)(udev_monitor*);
    int (*udev_monitor_filter_add_match_subsystem_devtype)(udev_monitor*, const char* subsystem,
                                                           const char* devtype);
    int (*udev_monitor_enable_receiving)(udev_monitor*);
    int (*udev_monitor_get_fd)(udev_monitor*);
    udev_device* (*udev_monitor_receive_device)(udev_monitor*);
    udev_device* (*udev_device_unref)(udev_device*);
    const char* (*udev_device_get_action)(udev_device*);
    const char* (*udev_device_get_syspath)(udev_device*);
    bool isUsable;

    Udev() {
        isUsable = library.Find("udev_new", udev_new) && library.Find("udev_unref", udev_unref) &&
                   library.Find("udev_monitor_new_from_netlink", udev_monitor_new_from_netlink) &&
                   library.Find("udev_monitor_unref", udev_monitor_unref) &&
                   library.Find("udev_monitor_filter_add_match_subsystem_devtype",
                                udev_monitor_filter_add_match_subsystem_devtype) &&
                   library.Find("udev_monitor_enable_receiving", udev_monitor_enable_receiving) &&
                   library.Find("udev_monitor_get_fd", udev_monitor_get_fd) &&
                   library.Find("udev_monitor_receive_device", udev_monitor_receive_device) &&
                   library.Find("udev_device_unref", udev_device_unref) &&
                   library.Find("udev_device_get_action", udev_device_get_action) &&
                   library.Find("udev_device_get_syspath", udev_device_get_syspath);
    }
};

// Null where the library is missing.
const Udev* TheUdev() {
    return FunctionsOf<Udev>([](Udev& udev) { return udev.isUsable; });
}

// A message of the daemon comes when its rules have been applied. Without the daemon libudev would
// listen to nobody.
const char* WhomToListenTo() {
    return access("/run/udev/control", F_OK) == 0 ? "udev" : "kernel";
}

}  // namespace

DeviceMonitor::DeviceMonitor() {
    const Udev* const library = TheUdev();
    if (library == nullptr) return;
    context = library->udev_new();
    if (context == nullptr) return;
    monitor = library->udev_monitor_new_from_netlink(context, WhomToListenTo());
    if (monitor != nullptr &&
        library->udev_monitor_filter_add_match_subsystem_devtype(monitor, "usb", "usb_device") >=
            0 &&
        library->udev_monitor_enable_receiving(monitor) >= 0) {
        descriptor = library->udev_monitor_get_fd(monitor);
    }
}

DeviceMonitor::~DeviceMonitor() {
    if (monitor != nullptr) {
        TheUdev()->udev_monitor_unref(monitor);
    }
    // Not every version of a monitor keeps it.
    if (context != nullptr) {
        TheUdev()->udev_unref(context);
    }
}

std::optional<DeviceMonitor::Change> DeviceMonitor::Next() {
    if (descriptor == -1) return std::nullopt;
    const Udev& library = *TheUdev();
    errno = 0;
    udev_device* const device = library.udev_monitor_receive_device(monitor);
    if (device == nullptr) {
        if (errno == ENOBUFS) return Change{Kind::kLost, std::string()};
        return std::nullopt;
    }
    const char* const action = library.udev_device_get_action(device);
    const char* const path = library.udev_device_get_syspath(device);
    const bool went = action != nullptr && std::strcmp(action, "remove") == 0;
    Change change{went ? Kind::kWent : Kind::kCame, path == nullptr ? "" : path};
    library.udev_device_unref(device);
    return change;
}

}  // namespace frameworks
