// One tablet that is there: what it says is read, understood and posted.
//
// Read with libevdev, which finds out what was lost when the kernel had to drop something. A device
// that says more than others is read in turns with them.
//
// Owner: Tablets. Threads: that of the loop. Failure: Open says why not; a tablet that cannot be
// read any more says so once, through the callback, after its tool has been taken away.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "driver/Descriptor.h"
#include "driver/Loop.h"
#include "driver/Pen.h"
#include "driver/Screen.h"
#include "driver/TapServer.h"
#include "driver/Timer.h"

struct libevdev;

namespace driver {

// An input device that was opened for reading.
class EventDevice {
  public:
    // Nothing is open, with the error number, when it cannot be read or is no tablet.
    EventDevice(const std::string& path, int& error);

    bool IsOpen() const { return device != nullptr; }
    int Descriptor() const { return node.Get(); }
    libevdev* Get() const { return device.get(); }

  private:
    struct Free {
        void operator()(libevdev* freed) const;
    };

    driver::Descriptor node;
    std::unique_ptr<libevdev, Free> device;
};

// What the device can say. Nothing, with the error number, when it cannot be read or is no tablet
// after all (ENODEV).
std::optional<TabletModel> ReadModel(const std::string& node, int& error);

class Tablet {
  public:
    // The callback may destroy the tablet.
    using WhenGone = std::function<void()>;

    // Null, with the error number, as for ReadModel.
    static std::unique_ptr<Tablet> Open(const std::string& node, Loop& loop, TapServer& server,
                                        Screen screen, WhenGone whenGone, int& error);
    Tablet(const Tablet&) = delete;
    Tablet& operator=(const Tablet&) = delete;
    // Takes its tool away.
    ~Tablet();

    const TabletModel& Model() const { return model; }

  private:
    Tablet(Loop& itsLoop, TapServer& itsServer, Screen screen, WhenGone itsWhenGone,
           EventDevice itsDevice);

    void TakeWhatIs();
    // A turn: the rest has another one.
    void Read();
    // False when there is nothing more for now, or ever.
    bool ReadNext();
    void Post(const PenEvents& events);

    Loop& loop;
    TapServer& server;
    const WhenGone whenGone;
    const EventDevice device;
    const TabletModel model;
    Pen pen;
    // libevdev may have the rest already, and then the device has nothing to be called for.
    Timer nextTurn;
    // Something was dropped. What comes until it is caught up with says what is.
    bool catchesUp = false;
};

}  // namespace driver
