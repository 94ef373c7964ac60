// What udev, or the kernel where there is no udev daemon, says about USB devices that come and go.
//
// libudev is loaded when the first monitor is opened. Owner: whoever opened it. Threads: one at a
// time. Failure: a monitor that could not be opened has no descriptor and never says anything.
#pragma once

#include <optional>
#include <string>

struct udev;
struct udev_monitor;

namespace frameworks {

class DeviceMonitor {
  public:
    enum class Kind {
        kCame,
        kWent,
        // Something was said that could not be kept: what is there has to be looked up.
        kLost
    };
    struct Change {
        Kind kind;
        // The device's folder in /sys. Not for what was lost.
        std::string path;
    };

    DeviceMonitor();
    DeviceMonitor(const DeviceMonitor&) = delete;
    DeviceMonitor& operator=(const DeviceMonitor&) = delete;
    ~DeviceMonitor();

    // To be watched for reading; -1 for none.
    int Descriptor() const { return descriptor; }
    // Nothing when there is nothing more for now.
    std::optional<Change> Next();

  private:
    udev* context = nullptr;
    udev_monitor* monitor = nullptr;
    int descriptor = -1;
};

}  // namespace frameworks
