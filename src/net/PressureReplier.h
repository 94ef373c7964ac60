// The way by which pen data leaves the tablet manager: it knows nothing else of the servers, apart
// from Outbox, which keeps together what belongs together; and they know nothing of taps.
//
// Called on the thread whose run loop carries the tap. Every operation returns 0 on success, -1 on
// failure.
#pragma once

#include <string>

class PressureReplier {
  public:
    PressureReplier() = default;
    PressureReplier(const PressureReplier&) = delete;
    PressureReplier& operator=(const PressureReplier&) = delete;
    virtual ~PressureReplier() = default;

    // A pen-down, drag or pen-up event.
    virtual int replyTabletEvent(const std::string& text) = 0;
    // A pressure value: 0 to 511 for a driver that reports 0 to 1. Five characters of it are sent,
    // whatever it is.
    virtual int replyPressure(int value) = 0;
    virtual int reply(const std::wstring& text) = 0;
    // A proximity or pointer-type word, for everybody.
    virtual int replyCursor(const std::wstring& text) = 0;
};
