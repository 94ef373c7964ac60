#include "driver/Tablet.h"

#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <sys/epoll.h>

#include <cerrno>

namespace driver {
namespace {

// How many events are read before the loop looks after the others.
constexpr int kEventsAtOnce = 64;

std::optional<Axis> AxisOf(const libevdev* device, unsigned code) {
    const input_absinfo* const info = libevdev_get_abs_info(device, code);
    if (info == nullptr) return std::nullopt;
    return Axis{info->minimum, info->maximum};
}

bool HasKey(const libevdev* device, unsigned code) {
    return libevdev_has_event_code(device, EV_KEY, code) != 0;
}

TabletModel ModelOf(const libevdev* device) {
    TabletModel model;
    model.name = libevdev_get_name(device);
    model.vendor = static_cast<std::uint16_t>(libevdev_get_id_vendor(device));
    model.product = static_cast<std::uint16_t>(libevdev_get_id_product(device));
    model.x = AxisOf(device, ABS_X);
    model.y = AxisOf(device, ABS_Y);
    model.pressure = AxisOf(device, ABS_PRESSURE);
    model.hasTouch = HasKey(device, BTN_TOUCH);
    model.hasPen = HasKey(device, BTN_TOOL_PEN);
    model.hasEraser = HasKey(device, BTN_TOOL_RUBBER);
    model.hasCursor = HasKey(device, BTN_TOOL_MOUSE) || HasKey(device, BTN_TOOL_LENS);
    return model;
}

Event EventOf(const input_event& event) {
    return Event{0, event.type, event.code, event.value};
}

}  // namespace

void EventDevice::Free::operator()(libevdev* freed) const {
    libevdev_free(freed);
}

EventDevice::EventDevice(const std::string& path, int& error)
    : node(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    if (!node.IsOpen()) {
        error = errno;
        return;
    }
    libevdev* made = nullptr;
    const int result = libevdev_new_from_fd(node.Get(), &made);
    if (result < 0) {
        error = -result;
        return;
    }
    device.reset(made);
    if (!ModelOf(made).IsTablet()) {
        error = ENODEV;
        device.reset();
    }
}

std::optional<TabletModel> ReadModel(const std::string& node, int& error) {
    const EventDevice device(node, error);
    if (!device.IsOpen()) return std::nullopt;
    return ModelOf(device.Get());
}

std::unique_ptr<Tablet> Tablet::Open(const std::string& node, Loop& loop, TapServer& server,
                                     Screen screen, WhenGone whenGone, int& error) {
    EventDevice device(node, error);
    if (!device.IsOpen()) return nullptr;
    std::unique_ptr<Tablet> tablet(
        new Tablet(loop, server, screen, std::move(whenGone), std::move(device)));
    tablet->TakeWhatIs();
    return tablet;
}

Tablet::Tablet(Loop& itsLoop, TapServer& itsServer, Screen screen, WhenGone itsWhenGone,
               EventDevice itsDevice)
    : loop(itsLoop),
      server(itsServer),
      whenGone(std::move(itsWhenGone)),
      device(std::move(itsDevice)),
      model(ModelOf(device.Get())),
      pen(model, screen),
      nextTurn(loop, [this] { Read(); }) {
    loop.Watch(device.Descriptor(), EPOLLIN, [this](std::uint32_t) { Read(); });
}

Tablet::~Tablet() {
    loop.Forget(device.Descriptor());
    Post(pen.Leave());
}

// The device says what changes only: where the pen is already has to be asked for.
void Tablet::TakeWhatIs() {
    constexpr unsigned kAxes[] = {ABS_X, ABS_Y, ABS_PRESSURE};
    for (const unsigned code : kAxes) {
        pen.Take({0, EV_ABS, static_cast<std::uint16_t>(code),
                  libevdev_get_event_value(device.Get(), EV_ABS, code)});
    }
    constexpr unsigned kKeys[] = {BTN_TOOL_PEN,    BTN_TOOL_RUBBER,   BTN_TOOL_BRUSH,
                                  BTN_TOOL_PENCIL, BTN_TOOL_AIRBRUSH, BTN_TOOL_MOUSE,
                                  BTN_TOOL_LENS,   BTN_TOUCH,         BTN_LEFT};
    for (const unsigned code : kKeys) {
        pen.Take({0, EV_KEY, static_cast<std::uint16_t>(code),
                  libevdev_get_event_value(device.Get(), EV_KEY, code)});
    }
    Post(pen.Take({0, EV_SYN, SYN_REPORT, 0}));
}

void Tablet::Read() {
    for (int count = 0; count < kEventsAtOnce; ++count) {
        if (!ReadNext()) return;
    }
    nextTurn.CallAt(Timer::Clock::now());
}

bool Tablet::ReadNext() {
    input_event event;
    const int result = libevdev_next_event(
        device.Get(), catchesUp ? LIBEVDEV_READ_FLAG_SYNC : LIBEVDEV_READ_FLAG_NORMAL, &event);
    if (result == LIBEVDEV_READ_STATUS_SUCCESS ||
        (result == LIBEVDEV_READ_STATUS_SYNC && catchesUp)) {
        Post(pen.Take(EventOf(event)));
    } else if (result == LIBEVDEV_READ_STATUS_SYNC) {
        catchesUp = true;
    } else if (result == -EAGAIN && catchesUp) {
        catchesUp = false;
    } else if (result == -EAGAIN) {
        return false;
    } else if (result != -EINTR) {
        whenGone();
        return false;
    }
    return true;
}

void Tablet::Post(const PenEvents& events) {
    for (const penEvents::Record& event : events) {
        server.Post(event);
    }
}

}  // namespace driver
