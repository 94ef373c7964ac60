#include "tablet/TabletManager.h"

#include <Carbon/Carbon.h>

#include <cstdio>
#include <limits>

#include "apps/ProcessManager.h"
#include "core/Helpers.h"
#include "net/Outbox.h"

PressureReplier* TabletManager::commandServer = nullptr;
PressureReplier* TabletManager::tabletServer = nullptr;
bool TabletManager::listening = false;
std::int64_t TabletManager::previousProximityStatus = -1;
int TabletManager::previousPressure = -1;
int TabletManager::oldX = -1;
int TabletManager::oldY = -1;
std::int64_t TabletManager::previousPointerType = -1;

namespace {

constexpr CGEventMask kTappedEvents =
    CGEventMaskBit(kCGEventLeftMouseDown) | CGEventMaskBit(kCGEventLeftMouseUp) |
    CGEventMaskBit(kCGEventLeftMouseDragged) | CGEventMaskBit(kCGEventTabletPointer) |
    CGEventMaskBit(kCGEventTabletProximity);
static_assert(kTappedEvents == 0x1800046, "the events that carry pen data");

// A full press gives 511, not 512: clients count on these two figures.
constexpr double kPressureRange = 2.000031;
constexpr double kPressureSteps = 1024.0;

constexpr std::int64_t kPen = 1;
constexpr std::int64_t kEraser = 3;

constexpr char kDriver[] = "/Library/Application Support/Tablet/StylusPadDriver.app";

// Truncates toward zero. What is no number, or has no int, comes from a broken driver and must not
// take us with it.
int ToInt(double value) {
    constexpr double kLowest = std::numeric_limits<int>::min();
    constexpr double kHighest = std::numeric_limits<int>::max();
    if (!(value > kLowest)) {
        return value <= kLowest ? std::numeric_limits<int>::min() : 0;
    }
    return value < kHighest ? static_cast<int>(value) : std::numeric_limits<int>::max();
}

const wchar_t* ProximityWord(std::int64_t enter) {
    if (enter == 0) {
        return L"PenData.PROXIMITY_OUT";
    }
    return enter < 0 ? L"PenData.PROXIMITY_UNKNOWN" : L"PenData.PROXIMITY_IN";
}

const wchar_t* PointerWord(std::int64_t type) {
    switch (type) {
        case kPen:
            return L"PenData.USE_TIP";
        case kEraser:
            return L"PenData.USE_ERASER";
        default:
            return L"PenData.USE_UNKNOWN";
    }
}

bool HasPosition(CGEventType type) {
    return type == kCGEventLeftMouseDown || type == kCGEventLeftMouseUp ||
           type == kCGEventLeftMouseDragged;
}

}  // namespace

std::vector<TabletManager::Tap>& TabletManager::tapPorts() {
    static std::vector<Tap>& taps = *new std::vector<Tap>();
    return taps;
}

void TabletManager::Init(PressureReplier* itsCommandServer, PressureReplier* itsTabletServer) {
    commandServer = itsCommandServer;
    tabletServer = itsTabletServer;
}

bool TabletManager::InstallTap(CFStringRef processName) {
    ProcessSerialNumber psn = {0, kNoProcess};
    if (!ProcessManager::FindPSNForProcessID(&psn, processName, nullptr)) {
        return false;
    }
    Helpers::logprint("PressureTap: Process found");
    auto port = CFOwner<CFMachPortRef>::Adopt(
        CGEventTapCreateForPSN(&psn, kCGHeadInsertEventTap, kCGEventTapOptionListenOnly,
                               kTappedEvents, TabletTapCallBack, nullptr));
    if (!port) {
        Helpers::logprint("PressureTap: Tap port is null");
        return false;
    }
    const auto source = CFOwner<CFRunLoopSourceRef>::Adopt(
        CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port.Get(), 0));
    // There is none when the process has gone in between: such a tap is like one whose process went
    // a moment later.
    if (source) {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
    }
    tapPorts().push_back({CFOwner<CFStringRef>::Retain(processName), std::move(port)});
    Helpers::logprint("PressureTap: Success");
    return true;
}

bool TabletManager::UninstallTap(CFStringRef processName, bool erase) {
    Helpers::logprint("TabletManager::UninstallTap: Trying to Uninstall Tap");
    std::vector<Tap>& taps = tapPorts();
    for (auto tap = taps.begin(); tap != taps.end(); ++tap) {
        if (CFStringCompare(tap->processName.Get(), processName, 0) != kCFCompareEqualTo) {
            continue;
        }
        if (CFMachPortIsValid(tap->port.Get())) {
            Helpers::logprint("TabletManager::UninstallTap: Tap is valid. Trying to Invalidate");
            CFMachPortInvalidate(tap->port.Get());
        }
        if (erase) {
            Helpers::logprint("TabletManager::UninstallTap: erase it");
            taps.erase(tap);
        }
        break;
    }
    Helpers::logprint("TabletManager::UninstallTap: Tap uninstalled");
    return true;
}

void TabletManager::Unload() {
    Helpers::logprint("TabletManager::Unload: start");
    std::vector<Tap>& taps = tapPorts();
    for (int round = 0; !taps.empty(); ++round) {
        Helpers::logprintf("TabletManager::Unload: Tap port iterator %d", round);
        UninstallTap(taps.front().processName.Get(), false);
        Helpers::logprint("TabletManager::Unload: erase it.");
        taps.erase(taps.begin());
    }
    Helpers::logprint("TabletManager::Unload: end");
}

std::wstring TabletManager::GetDriverVersion() {
    std::wstring none = L"none";
    const auto bundle = CFOwner<CFBundleRef>::Adopt(Helpers::getBundleRef(kDriver));
    if (!bundle) {
        return none;
    }
    const CFDictionaryRef information = CFBundleGetInfoDictionary(bundle.Get());
    if (information == nullptr) {
        return none;
    }
    const auto* const value =
        static_cast<CFStringRef>(CFDictionaryGetValue(information, CFSTR("CFBundleGetInfoString")));
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) {
        return none;
    }
    char* const copy = Helpers::copy_CFStringRefToCString(value);
    if (copy == nullptr) {
        return none;
    }
    const std::string text = copy;
    DisposePtr(copy);
    const std::size_t blank = text.find(' ');
    return blank == std::string::npos ? none : Helpers::stringToWString(text.substr(0, blank));
}

void TabletManager::sendPressure(CGEventRef event) {
    const double value = CGEventGetDoubleValueField(event, kCGTabletEventPointPressure);
    const int pressure = ToInt(value / kPressureRange * kPressureSteps);
    if (pressure != previousPressure) {
        tabletServer->replyPressure(pressure);
    }
    previousPressure = pressure;
}

void TabletManager::sendProximity(CGEventRef event) {
    const std::int64_t type =
        CGEventGetIntegerValueField(event, kCGTabletProximityEventPointerType);
    const std::int64_t enter =
        CGEventGetIntegerValueField(event, kCGTabletProximityEventEnterProximity);
    if (enter != previousProximityStatus) {
        tabletServer->replyCursor(ProximityWord(enter));
        previousProximityStatus = enter;
    }
    if (type != previousPointerType) {
        tabletServer->replyCursor(PointerWord(type));
        previousPointerType = type;
    }
}

CGEventRef TabletManager::TabletTapCallBack(CGEventTapProxy /*proxy*/, CGEventType type,
                                            CGEventRef event, void* /*unused*/) {
    int x = 0;
    int y = 0;
    if (HasPosition(type)) {
        const CGPoint point = CGEventGetLocation(event);
        x = ToInt(point.x);
        y = ToInt(point.y);
    }
    const char* message = "";
    // A drag has a pressure and a position: the client is woken up once for both.
    const Outbox::Gathering together;
    switch (type) {
        case kCGEventLeftMouseDown:
            // Whether or not anybody listens.
            message = "d";
            break;
        case kCGEventLeftMouseUp:
            message = listening ? "u" : "";
            break;
        case kCGEventLeftMouseDragged:
            if (listening) {
                message = x != oldX || y != oldY ? "m" : "";
                sendPressure(event);
            }
            break;
        case kCGEventTabletPointer:
            if (listening) {
                sendPressure(event);
            }
            break;
        case kCGEventTabletProximity:
            sendProximity(event);
            break;
        default:
            break;
    }
    if (*message != '\0') {
        oldX = x;
        oldY = y;
        char position[32];
        std::snprintf(position, sizeof position, "%d_%d", x, y);
        tabletServer->replyTabletEvent(std::string(message) + position);
    }
    return event;
}
