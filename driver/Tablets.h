// All tablets that are there, and those that come and go meanwhile.
//
// What comes and goes is heard of through libudev: from the udev daemon, or from the kernel where
// there is none. People are told on standard error what is read, and what cannot be and why.
//
// Owner: main. Threads: that of the loop. Failure: a tablet that cannot be read is tried again when
// the system says something of it.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "driver/Loop.h"
#include "driver/Screen.h"
#include "driver/Tablet.h"
#include "driver/TabletFinder.h"
#include "driver/TapServer.h"

struct udev;
struct udev_monitor;

namespace driver {

class Tablets {
  public:
    Tablets(Loop& itsLoop, TapServer& itsServer, Screen itsScreen);
    Tablets(const Tablets&) = delete;
    Tablets& operator=(const Tablets&) = delete;
    ~Tablets();

    // Those that are read.
    std::size_t Count() const { return tablets.size(); }

  private:
    struct FreeContext {
        void operator()(udev* context) const;
    };
    struct FreeMonitor {
        void operator()(udev_monitor* monitor) const;
    };

    void Listen();
    void Hear();
    // Looks after what is there now: after something was not heard, too.
    void Look();
    void Open(const FoundTablet& found);
    void Close(const std::string& folder);

    Loop& loop;
    TapServer& server;
    const Screen screen;
    std::unique_ptr<udev, FreeContext> context;
    std::unique_ptr<udev_monitor, FreeMonitor> monitor;
    // By their folders in /sys.
    std::map<std::string, std::unique_ptr<Tablet>> tablets;
};

}  // namespace driver
