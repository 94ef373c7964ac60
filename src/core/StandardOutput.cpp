#include "core/StandardOutput.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "core/Owners.h"

namespace {

void Flush(CFRunLoopObserverRef /*observer*/, CFRunLoopActivity /*activity*/, void* /*info*/) {
    FlushStandardOutput();
}

}  // namespace

void FlushStandardOutput() {
    static_cast<void>(std::fflush(stdout));
}

void OpenStandardDescriptors() {
    for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; ++standard) {
        if (fcntl(standard, F_GETFD) == -1) {
            // The lowest free number is the one that is missing.
            // cppcheck-suppress leakReturnValNotUsed ; kept until the process ends
            ::open("/dev/null", O_RDWR);
        }
    }
}

void FlushStandardOutputBeforeWaiting() {
    const auto observer = CFOwner<CFRunLoopObserverRef>::Adopt(CFRunLoopObserverCreate(
        kCFAllocatorDefault, kCFRunLoopBeforeWaiting, true, 0, Flush, nullptr));
    CFRunLoopAddObserver(CFRunLoopGetCurrent(), observer.Get(), kCFRunLoopCommonModes);
}
