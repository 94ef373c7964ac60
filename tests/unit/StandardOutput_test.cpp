#include "core/StandardOutput.h"

#include <Carbon/Carbon.h>
#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "core/Owners.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Waiting.h"

namespace {

bool IsTheNullDevice(int descriptor) {
    struct stat status;
    return fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode) &&
           status.st_rdev == makedev(1, 3);
}

TEST(OpenStandardDescriptors, PutsTheNullDeviceWhereOneIsMissing) {
    for (int missing = 1; missing < 8; ++missing) {
        // The bits of the number tell which ones.
        const Outcome outcome = RunForked([missing] {
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                if ((missing >> descriptor & 1) != 0) {
                    close(descriptor);
                }
            }
            OpenStandardDescriptors();
            bool isRight = true;
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                const bool wasMissing = (missing >> descriptor & 1) != 0;
                isRight = isRight && fcntl(descriptor, F_GETFD) != -1 &&
                          (!wasMissing || IsTheNullDevice(descriptor));
            }
            const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
            // With the standard output gone, the status tells.
            _exit(isRight && next > 2 ? 7 : 8);
        });
        EXPECT_EQ(7, outcome.status) << "missing: " << missing;
    }
}

TEST(OpenStandardDescriptors, LeavesAloneWhatIsThere) {
    InChild([] {
        struct stat before;
        struct stat after;
        ASSERT_EQ(0, fstat(STDOUT_FILENO, &before));
        const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(next);
        OpenStandardDescriptors();
        ASSERT_EQ(0, fstat(STDOUT_FILENO, &after));
        EXPECT_EQ(before.st_ino, after.st_ino);
        EXPECT_EQ(-1, fcntl(next, F_GETFD));
    });
}

// What of the file behind standard output can be seen by others.
off_t Visible() {
    struct stat status;
    return fstat(STDOUT_FILENO, &status) == 0 ? status.st_size : -1;
}

constexpr char kLine[] = "line";
constexpr off_t kLength = 5;

int bell[2] = {-1, -1};
off_t seenDuringTheTurn = -1;

// Prints a line for every ring, until the bell is taken away.
void Answer(CFSocketRef socket, CFSocketCallBackType /*type*/, CFDataRef /*address*/,
            const void* /*data*/, void* /*info*/) {
    char ring;
    if (read(bell[0], &ring, 1) != 1) {
        CFSocketInvalidate(socket);
        return;
    }
    std::puts(kLine);
    seenDuringTheTurn = Visible();
}

TEST(FlushStandardOutputBeforeWaiting, ShowsEveryLineWhenTheLoopIsAboutToWait) {
    InChild([] {
        ASSERT_EQ(0, pipe2(bell, O_CLOEXEC));
        const auto socket = CFOwner<CFSocketRef>::Adopt(CFSocketCreateWithNative(
            kCFAllocatorDefault, bell[0], kCFSocketReadCallBack, Answer, nullptr));
        const auto source = CFOwner<CFRunLoopSourceRef>::Adopt(
            CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket.Get(), 0));
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopCommonModes);
        FlushStandardOutputBeforeWaiting();
        std::puts(kLine);
        EXPECT_EQ(0, Visible());
        std::thread reader([] {
            for (off_t lines = 1; lines < 5; ++lines) {
                EXPECT_TRUE(WaitUntil([lines] { return Visible() == lines * kLength; }));
                EXPECT_EQ(1, write(bell[1], "!", 1));
            }
            EXPECT_TRUE(WaitUntil([] { return Visible() == 5 * kLength; }));
            close(bell[1]);
        });
        CFRunLoopRun();
        reader.join();
        // One write a turn: the line of a turn was not out before the turn's end.
        EXPECT_EQ(4 * kLength, seenDuringTheTurn);
    });
}

}  // namespace
