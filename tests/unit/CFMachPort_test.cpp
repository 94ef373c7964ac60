#include <ApplicationServices/ApplicationServices.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include "CFTestSupport.h"
#include "PenPoster.h"
#include "RunLoopUntil.h"

namespace {

CGEventRef Ignore(CGEventTapProxy, CGEventType, CGEventRef event, void*) {
    return event;
}

Owned<CFMachPortRef> NewPort() {
    ProcessSerialNumber psn = {0, static_cast<UInt32>(getpid())};
    return CGEventTapCreateForPSN(&psn, kCGHeadInsertEventTap, kCGEventTapOptionListenOnly, 0,
                                  Ignore, nullptr);
}

TEST(CFMachPort, New_IsValid) {
    const PenPoster poster;
    const Owned<CFMachPortRef> port = NewPort();
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(CFGetTypeID(port), CFMachPortGetTypeID());
    EXPECT_TRUE(CFMachPortIsValid(port));
}

TEST(CFMachPort, Invalidate_Twice_IsLikeOnce) {
    const PenPoster poster;
    const Owned<CFMachPortRef> port = NewPort();
    CFMachPortInvalidate(port);
    EXPECT_FALSE(CFMachPortIsValid(port));
    CFMachPortInvalidate(port);
    EXPECT_FALSE(CFMachPortIsValid(port));
}

TEST(CFMachPort, RunLoopSource_IsTheSameEveryTime) {
    const PenPoster poster;
    const Owned<CFMachPortRef> port = NewPort();
    const Owned<CFRunLoopSourceRef> first =
        CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0);
    const Owned<CFRunLoopSourceRef> second =
        CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 5);
    EXPECT_EQ(CFRunLoopSourceRef{first}, CFRunLoopSourceRef{second});
}

TEST(CFMachPort, RunLoopSource_OfAnInvalidPort_IsNull) {
    const PenPoster poster;
    const Owned<CFMachPortRef> port = NewPort();
    CFMachPortInvalidate(port);
    EXPECT_EQ(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0), nullptr);
}

TEST(CFMachPort, Source_KeepsItsPort) {
    PenPoster poster;
    Owned<CFRunLoopSourceRef> source = [] {
        const Owned<CFMachPortRef> port = NewPort();
        return Owned<CFRunLoopSourceRef>(
            CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0));
    }();
    poster.Accept();
    EXPECT_TRUE(poster.Post(PenEvent(1)));
}

TEST(CFMachPort, Release_OfTheLastReference_ClosesThePort) {
    PenPoster poster;
    {
        const Owned<CFMachPortRef> port = NewPort();
        poster.Accept();
        EXPECT_TRUE(poster.Post(PenEvent(1)));
    }
    EXPECT_FALSE(poster.Post(PenEvent(1)));
}

TEST(CFMachPort, Invalidate_ClosesItsDescriptorAtOnce_AndLeavesTheLoop) {
    PenPoster poster;
    const Owned<CFMachPortRef> port = NewPort();
    poster.Accept();
    const Owned<CFRunLoopSourceRef> source =
        CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    CFMachPortInvalidate(port);
    EXPECT_FALSE(poster.Post(PenEvent(1)));
    // Comes back, because there is no source left.
    CFRunLoopRun();
}

// Nobody runs a loop here that could have noticed.
TEST(CFMachPort, IsValid_AfterTheOtherEndIsGone_IsFalse) {
    PenPoster poster;
    const Owned<CFMachPortRef> port = NewPort();
    poster.Accept();
    poster.HangUp();
    EXPECT_FALSE(CFMachPortIsValid(port));
}

TEST(CFMachPort, WrongAndNullReferences_Stop) {
    EXPECT_DEATH(CFMachPortIsValid(nullptr), "CFMachPortIsValid: expected a CFMachPort");
    EXPECT_DEATH(CFMachPortInvalidate(
                     const_cast<__CFMachPort*>(reinterpret_cast<const __CFMachPort*>(CFSTR("x")))),
                 "expected a CFMachPort, got a CFString");
    EXPECT_DEATH(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, nullptr, 0),
                 "CFMachPortCreateRunLoopSource");
}

TEST(CFMachPort, Descriptor_IsNotHandedOnToPrograms) {
    const PenPoster poster;
    const int before = dup(STDIN_FILENO);
    close(before);
    const Owned<CFMachPortRef> port = NewPort();
    EXPECT_EQ(fcntl(before, F_GETFD), FD_CLOEXEC);
}

}  // namespace
