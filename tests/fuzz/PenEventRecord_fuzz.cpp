// Pen events: of what a driver sends, the tap takes what are events, whole and in their order, and
// the service makes of them what its clients know.
//
// An input is a byte for the types that are tapped, and then what the driver does, step by step:
// see Play. The driver is this process, which taps itself.
#include <ApplicationServices/ApplicationServices.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "Bytes.h"
#include "CoreGraphics/Event.h"
#include "CoreGraphics/PenEventRecord.h"
#include "LoopTurns.h"
#include "Require.h"
#include "Support/UniqueDescriptor.h"
#include "Surroundings.h"
#include "core/Owners.h"
#include "tablet/TabletManager.h"

namespace {

using frameworks::UniqueDescriptor;
using penEvents::Record;

constexpr std::uint32_t kTypes[] = {penEvents::kDown, penEvents::kUp, penEvents::kDragged,
                                    penEvents::kPointer, penEvents::kProximity};

// What clients are told, in words of the test.
using Told = std::vector<std::string>;

class Listener final : public PressureReplier {
  public:
    int replyTabletEvent(const std::string& text) override { return Note("event " + text); }
    int replyPressure(int value) override { return Note("pressure " + std::to_string(value)); }
    int reply(const std::wstring& /*text*/) override { return Note("reply"); }
    int replyCursor(const std::wstring& text) override {
        return Note("word " + std::string(text.begin(), text.end()));
    }

    Told told;

  private:
    int Note(std::string what) {
        told.push_back(std::move(what));
        return 0;
    }
};

int ToInt(double value) {
    if (std::isnan(value)) return 0;
    return static_cast<int>(std::clamp(std::trunc(value), -2147483648.0, 2147483647.0));
}

// What the rules say that clients are told of an event.
class Expected {
  public:
    void Take(const Record& record) {
        const CGPoint place{static_cast<CGFloat>(record.x), static_cast<CGFloat>(record.y)};
        const std::string position =
            std::to_string(ToInt(place.x)) + "_" + std::to_string(ToInt(place.y));
        switch (record.type) {
            case penEvents::kDown:
                Tell("event d", position);
                break;
            case penEvents::kUp:
                if (TabletManager::listening) Tell("event u", position);
                break;
            case penEvents::kDragged:
                if (!TabletManager::listening) break;
                Press(record.pressure);
                if (position != lastPosition) Tell("event m", position);
                break;
            case penEvents::kPointer:
                if (TabletManager::listening) Press(record.pressure);
                break;
            default:
                ComeOrGo(record);
        }
    }

    Told told;

  private:
    void Tell(const char* what, const std::string& position) {
        told.push_back(what + position);
        lastPosition = position;
    }
    void Press(double share) {
        const int pressure = ToInt(share / 2.000031 * 1024.0);
        if (pressure != lastPressure) told.push_back("pressure " + std::to_string(pressure));
        lastPressure = pressure;
    }
    void ComeOrGo(const Record& record) {
        if (record.enterProximity != lastProximity) {
            told.push_back(std::string("word PenData.PROXIMITY_") +
                           (record.enterProximity == 0  ? "OUT"
                            : record.enterProximity > 0 ? "IN"
                                                        : "UNKNOWN"));
            lastProximity = record.enterProximity;
        }
        if (record.pointerType != lastTool) {
            told.push_back(std::string("word PenData.USE_") + (record.pointerType == 1 ? "TIP"
                                                               : record.pointerType == 3
                                                                   ? "ERASER"
                                                                   : "UNKNOWN"));
            lastTool = record.pointerType;
        }
    }

    std::string lastPosition = "0_0";
    int lastPressure = 0;
    std::int64_t lastProximity = -1;
    std::int64_t lastTool = 0;
};

Listener& TheListener() {
    static Listener& listener = *new Listener();
    return listener;
}

void Post(const Record& record) {
    __CGEvent event(record);
    TabletManager::TabletTapCallBack(nullptr, static_cast<CGEventType>(record.type), &event,
                                     nullptr);
}

// The service remembers what it told last: the same at the beginning of every input.
void Forget() {
    TabletManager::listening = true;
    TabletManager::previousProximityStatus = -1;
    Post({1, penEvents::kPointer, 0, 0, 0, 0, 0});
    Post({1, penEvents::kDown, 0, 0, 0, 0, 0});
    Post({1, penEvents::kProximity, 0, 0, 0, 0, -1});
    TheListener().told.clear();
}

int Listen() {
    Surroundings::Home();
    TabletManager::Init(&TheListener(), &TheListener());
    const int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const penEvents::Address address = penEvents::AddressOf(getpid());
    Require(bind(listener, reinterpret_cast<const sockaddr*>(&address.name), address.length) == 0 &&
                listen(listener, 1) == 0,
            "the driver listens");
    return listener;
}

// What came through the tap.
std::vector<Record>& Tapped() {
    static std::vector<Record>& tapped = *new std::vector<Record>();
    return tapped;
}

CGEventRef Take(CGEventTapProxy proxy, CGEventType type, CGEventRef event, void* marker) {
    Require(marker == &Tapped(), "whoever tapped is told who he is");
    Require(event->record.type == type, "an event has the type that it has");
    Tapped().push_back(event->record);
    return TabletManager::TabletTapCallBack(proxy, type, event, nullptr);
}

// A driver and the tap on it.
class Connection {
  public:
    explicit Connection(CGEventMask itsWanted) : wanted(itsWanted) {
        static const int listener = Listen();
        ProcessSerialNumber psn = {0, static_cast<UInt32>(getpid())};
        port = CFOwner<CFMachPortRef>::Adopt(CGEventTapCreateForPSN(
            &psn, kCGHeadInsertEventTap, kCGEventTapOptionListenOnly, wanted, Take, &Tapped()));
        Require(bool(port), "one's own process can be tapped");
        driver = UniqueDescriptor(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        const auto source = CFOwner<CFRunLoopSourceRef>::Adopt(
            CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port.Get(), 0));
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopCommonModes);
        Forget();
        Tapped().clear();
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { CFMachPortInvalidate(port.Get()); }

    void Send(std::string_view packet) {
        Require(send(driver.Get(), packet.data(), packet.size(), MSG_NOSIGNAL) ==
                    static_cast<ssize_t>(packet.size()),
                "a packet is sent");
        Record record;
        if (packet.size() == sizeof record) {
            std::memcpy(&record, packet.data(), sizeof record);
            if (IsEvent(record)) sent.push_back(record);
        }
        // Long before the socket is full.
        if (++packets % 64 == 0) Serve();
    }
    // The tap takes all that was sent.
    void Serve() {
        LoopTurns::Make(6);
        const std::vector<Record>& tapped = Tapped();
        Require(tapped.size() == sent.size(), "every event comes, and nothing else");
        for (std::size_t index = 0; index < sent.size(); ++index) {
            Require(std::memcmp(&tapped[index], &sent[index], sizeof(Record)) == 0,
                    "an event comes as it was sent, and in its turn");
            expected.Take(sent[index]);
        }
        Require(TheListener().told == expected.told, "clients are told what has changed");
        Tapped().clear();
        sent.clear();
        expected.told.clear();
        TheListener().told.clear();
    }
    void HangUp() {
        driver = UniqueDescriptor();
        Serve();
        LoopTurns::Make(1);
        Require(!CFMachPortIsValid(port.Get()), "a tap ends with its driver");
    }
    bool IsOpen() const { return CFMachPortIsValid(port.Get()); }

  private:
    bool IsEvent(const Record& record) const {
        return record.version == 1 &&
               std::find(std::begin(kTypes), std::end(kTypes), record.type) != std::end(kTypes) &&
               (wanted >> record.type & 1) != 0;
    }

    const CGEventMask wanted;
    CFOwner<CFMachPortRef> port;
    UniqueDescriptor driver;
    // Since the tap was served last.
    std::vector<Record> sent;
    std::size_t packets = 0;
    Expected expected;
};

CGEventMask MaskOf(std::uint8_t bits) {
    CGEventMask mask = 0;
    for (const std::uint32_t type : kTypes) {
        mask |= (bits & 1) == 0 ? CGEventMaskBit(type) : 0;
        bits = static_cast<std::uint8_t>(bits >> 1);
    }
    return mask;
}

void Play(Bytes& input, Connection& connection) {
    const std::uint8_t step = input.TakeByte();
    switch (step % 4) {
        case 0:
            connection.Send(input.Take(input.TakeByte()));
            break;
        case 1: {
            // A record that has the right head.
            Record record = {};
            const std::string_view fields = input.Take(sizeof record - offsetof(Record, x));
            std::memcpy(&record.x, fields.data(), fields.size());
            record.version = 1;
            record.type = kTypes[step / 4 % 5];
            connection.Send({reinterpret_cast<const char*>(&record), sizeof record});
            break;
        }
        case 2: {
            // A small one, such as a tablet sends.
            const double share = input.TakeByte() / 255.0;
            const Record record = {
                1,     kTypes[step / 4 % 5],     double(input.TakeByte()), double(input.TakeByte()),
                share, input.TakeByte() % 5 - 1, input.TakeByte() % 4 - 1};
            connection.Send({reinterpret_cast<const char*>(&record), sizeof record});
            break;
        }
        default:
            connection.Serve();
            TabletManager::listening = step / 4 % 2 == 0;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes input(data, size);
    Connection connection(MaskOf(input.TakeByte()));
    while (!input.AreAll()) {
        Play(input, connection);
    }
    connection.Serve();
    Require(connection.IsOpen(), "a tap ends with its driver, and not before");
    connection.HangUp();
    return 0;
}
