// What the tests of run loops and sockets share: fresh threads, so that each test has a run loop of
// its own, a guard against loops that nobody stops, and sockets to watch.
//
// Nothing here waits longer than kPatience.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "CFTestSupport.h"
#include "CoreFoundation/RunLoop.h"
#include "Support/ReadFile.h"
#include "Support/UniqueDescriptor.h"

namespace looptest {

using frameworks::Ref;
using frameworks::UniqueDescriptor;

constexpr std::chrono::seconds kPatience{20};

template <typename Work>
void OnAFreshThread(const Work& work) {
    std::thread thread(work);
    thread.join();
}

// Calls a function once, after a while.
class Alarm final : public __CFRunLoopSource {
  public:
    explicit Alarm(std::function<void()> itsWork)
        : __CFRunLoopSource(-1, std::nullopt, 0), work(std::move(itsWork)) {}

    // On this thread's loop, which keeps it.
    static Ref<Alarm> Set(std::chrono::milliseconds delay, std::function<void()> work) {
        auto alarm = Ref<Alarm>::Adopt(new Alarm(std::move(work)));
        CFRunLoopAddSource(CFRunLoopGetCurrent(), alarm.Get(), kCFRunLoopDefaultMode);
        alarm->CallAfter(delay);
        return alarm;
    }

  private:
    void TimedOut() override {
        work();
        Invalidate();
    }

    const std::function<void()> work;
};

// Runs this thread's loop until it is stopped. A loop that nobody stops fails the test.
inline void RunUntilStopped() {
    bool expired = false;
    const auto alarm = Alarm::Set(kPatience, [&expired] {
        expired = true;
        CFRunLoopStop(CFRunLoopGetCurrent());
    });
    CFRunLoopRun();
    alarm->Invalidate();
    EXPECT_FALSE(expired) << "nobody stopped the run loop";
}

// Runs this thread's loop for that long.
inline void RunFor(std::chrono::milliseconds time) {
    Alarm::Set(time, [] { CFRunLoopStop(CFRunLoopGetCurrent()); });
    CFRunLoopRun();
}

// Asks until it is so, on a thread that has no loop to wait in.
template <typename Condition>
bool BecomesTrue(const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Returns when the thread with that number (gettid) sleeps in the kernel, as one does whose loop
// waits.
inline void WaitUntilAsleep(pid_t thread) {
    const std::string file = "/proc/self/task/" + std::to_string(thread) + "/stat";
    EXPECT_TRUE(BecomesTrue([&file] {
        const std::optional<std::string> line = frameworks::ReadFile(file.c_str());
        return line && line->find(") S ") != std::string::npos;
    }));
}

struct Pair {
    UniqueDescriptor near;
    UniqueDescriptor far;

    Pair() {
        int both[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, both), 0);
        near = UniqueDescriptor(both[0]);
        far = UniqueDescriptor(both[1]);
    }
};

struct Listener {
    UniqueDescriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_in address{};

    explicit Listener(int backlog = 128) {
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(socket.Get(), generic, length), 0);
        EXPECT_EQ(getsockname(socket.Get(), generic, &length), 0);
        EXPECT_EQ(listen(socket.Get(), backlog), 0);
    }

    UniqueDescriptor Connect() const {
        UniqueDescriptor client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(
            connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return client;
    }
};

// A socket and its source on this thread's loop, and what it is told.
class Watched {
  public:
    using Work = std::function<void(Watched& self, CFSocketCallBackType what, const void* data)>;

    Watched(int native, CFOptionFlags what, Work itsWork) : work(std::move(itsWork)) {
        CFSocketContext context{0, this, nullptr, CountRelease, nullptr};
        socket = CFSocketCreateWithNative(kCFAllocatorDefault, native, what, Told, &context);
        if (socket != nullptr) {
            CFSocketSetSocketFlags(socket,
                                   CFSocketGetSocketFlags(socket) & ~kCFSocketCloseOnInvalidate);
        }
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
    ~Watched() {
        if (socket != nullptr) {
            CFSocketInvalidate(socket);
            CFRelease(socket);
            EXPECT_EQ(releases, 1);
        }
    }

    void AddToLoop(CFRunLoopRef loop = CFRunLoopGetCurrent()) {
        const Owned<CFRunLoopSourceRef> source =
            CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0);
        CFRunLoopAddSource(loop, source, kCFRunLoopCommonModes);
    }

    CFSocketRef socket;
    int calls = 0;
    int releases = 0;

  private:
    static void Told(CFSocketRef, CFSocketCallBackType what, CFDataRef, const void* data,
                     void* info) {
        Watched& self = *static_cast<Watched*>(info);
        ++self.calls;
        self.work(self, what, data);
    }
    static void CountRelease(const void* info) {
        ++const_cast<Watched*>(static_cast<const Watched*>(info))->releases;
    }

    Work work;
};

inline void StopLoop() {
    CFRunLoopStop(CFRunLoopGetCurrent());
}

// Whether the number is open.
inline bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

inline std::string ReadAll(int descriptor) {
    char bytes[4096];
    const ssize_t length = read(descriptor, bytes, sizeof bytes);
    return std::string(bytes, length > 0 ? static_cast<std::size_t>(length) : 0);
}

}  // namespace looptest
