#include "net/Outbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "core/Owners.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Sanitizers.h"
#include "unit/support/Waiting.h"

namespace {

constexpr std::size_t kMegabyte = 1 << 20;

// A client of the outbox whose writing the test triggers itself, and the other end.
class Client {
  public:
    Client() {
        int ends[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
        socket = ends[0];
        peer = ends[1];
        wrapper = CFOwner<CFSocketRef>::Adopt(CFSocketCreateWithNative(
            kCFAllocatorDefault, socket, kCFSocketReadCallBack | kCFSocketWriteCallBack,
            [](CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void*) {}, nullptr));
        CFSocketSetSocketFlags(wrapper.Get(), 0);
        Outbox::Open(socket, wrapper.Get());
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() {
        Outbox::Close(socket);
        ClosePeer();
    }

    CFSocketRef Wrapper() const { return wrapper.Get(); }
    void ClosePeer() {
        if (peer != -1) {
            close(peer);
            peer = -1;
        }
    }
    // What the peer can receive now, at most LENGTH bytes of it.
    std::string Receive(std::size_t length = std::string::npos) const {
        std::string bytes;
        char part[65536];
        while (bytes.size() < length) {
            const ssize_t received =
                recv(peer, part, std::min(sizeof part, length - bytes.size()), 0);
            if (received <= 0) {
                break;
            }
            bytes.append(part, static_cast<std::size_t>(received));
        }
        return bytes;
    }
    // Sends until something waits; returns what was sent.
    std::string Fill() const {
        std::string all;
        const std::string piece(10000, 'f');
        while (!Outbox::IsWaiting(socket)) {
            EXPECT_EQ(static_cast<long>(piece.size()), Outbox::Send(socket, piece));
            all += piece;
        }
        return all;
    }
    // Receives and flushes until nothing waits any more.
    std::string ReceiveEverything() const {
        std::string all = Receive();
        while (Outbox::IsWaiting(socket)) {
            Outbox::Flush(socket);
            all += Receive();
        }
        return all + Receive();
    }

    int socket;
    int peer;

  private:
    CFOwner<CFSocketRef> wrapper;
};

TEST(Outbox, AMessage_IsSentAtOnce) {
    const Client client;
    EXPECT_EQ(6, Outbox::Send(client.socket, "hello|"));
    EXPECT_EQ("hello|", client.Receive());
    EXPECT_FALSE(Outbox::IsWaiting(client.socket));
}

TEST(Outbox, AnEmptyMessage_IsNothing) {
    const Client client;
    EXPECT_EQ(0, Outbox::Send(client.socket, ""));
    EXPECT_EQ("", client.Receive());
}

TEST(Outbox, MessagesHaveAnyBytes) {
    const Client client;
    const std::string bytes("0037\0|\xFF", 7);
    EXPECT_EQ(7, Outbox::Send(client.socket, bytes));
    EXPECT_EQ(bytes, client.Receive());
}

TEST(Outbox, ANumberThatIsNoClients_IsRefused) {
    int pipe[2];
    ASSERT_EQ(0, pipe2(pipe, O_CLOEXEC | O_NONBLOCK));
    for (const int socket : {-1, 0, 1, 2, pipe[1], 1 << 20}) {
        errno = 0;
        EXPECT_EQ(-1, Outbox::Send(socket, "lost")) << socket;
        EXPECT_EQ(EBADF, errno) << socket;
        EXPECT_FALSE(Outbox::IsWaiting(socket));
        Outbox::Flush(socket);
        EXPECT_FALSE(Outbox::Close(socket));
    }
    EXPECT_NE(-1, fcntl(pipe[1], F_GETFD));
    char byte;
    EXPECT_EQ(-1, read(pipe[0], &byte, 1));
    close(pipe[0]);
    close(pipe[1]);
}

TEST(Outbox, Close_ClosesTheDescriptorOnce) {
    const Client client;
    EXPECT_TRUE(Outbox::Close(client.socket));
    EXPECT_EQ(-1, fcntl(client.socket, F_GETFD));
    EXPECT_FALSE(Outbox::IsWaiting(client.socket));
    // Whoever has the number now is not concerned.
    const int next = open("/dev/null", O_WRONLY | O_CLOEXEC);
    // cppcheck-suppress resourceLeak ; the test's process ends when the number is another one
    ASSERT_EQ(client.socket, next);
    EXPECT_FALSE(Outbox::Close(next));
    EXPECT_EQ(-1, Outbox::Send(next, "lost"));
    EXPECT_NE(-1, fcntl(next, F_GETFD));
    close(next);
}

TEST(Outbox, Close_EndsTheWrapperBeforeTheNumberIsFree) {
    // Or whoever gets the number next, on another thread, would meet the wrapper.
    const Client client;
    const auto source = CFOwner<CFRunLoopSourceRef>::Adopt(
        CFSocketCreateRunLoopSource(kCFAllocatorDefault, client.Wrapper(), 0));
    EXPECT_TRUE(source);
    Outbox::Close(client.socket);
    EXPECT_EQ(nullptr, CFSocketCreateRunLoopSource(kCFAllocatorDefault, client.Wrapper(), 0));
}

TEST(Outbox, WhatTheSystemDoesNotTake_WaitsAndIsSentInItsOrder) {
    const Client client;
    std::string sent = client.Fill();
    for (const char* const message : {"one|", "two|", "three|"}) {
        EXPECT_EQ(static_cast<long>(std::string(message).size()),
                  Outbox::Send(client.socket, message));
        sent += message;
    }
    EXPECT_TRUE(sent == client.ReceiveEverything());
    EXPECT_FALSE(Outbox::IsWaiting(client.socket));
    EXPECT_EQ(5, Outbox::Send(client.socket, "four|"));
    EXPECT_EQ("four|", client.Receive());
}

TEST(Outbox, AMessageOfAnySize_IsTakenWhole) {
    const Client client;
    std::string message(10 * kMegabyte, '\0');
    for (std::size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<char>(i * 7 + i / 256);
    }
    EXPECT_EQ(static_cast<long>(message.size()), Outbox::Send(client.socket, message));
    EXPECT_TRUE(Outbox::IsWaiting(client.socket));
    EXPECT_TRUE(message == client.ReceiveEverything());
}

TEST(Outbox, TooMuchUnread_IsRefusedUntilItHasBeenRead) {
    const Client client;
    std::string sent = client.Fill();
    const std::string piece(kMegabyte, 'x');
    while (Outbox::Send(client.socket, piece) != -1) {
        sent += piece;
        ASSERT_LT(sent.size(), Outbox::kMostWaiting + 10 * kMegabyte);
    }
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_GT(sent.size(), Outbox::kMostWaiting);
    errno = 0;
    EXPECT_EQ(-1, Outbox::Send(client.socket, "y"));
    EXPECT_EQ(EAGAIN, errno);
    // None of what was refused arrives, all of the rest does.
    EXPECT_TRUE(sent == client.ReceiveEverything());
    EXPECT_EQ(1, Outbox::Send(client.socket, "z"));
    EXPECT_EQ("z", client.Receive());
}

TEST(Outbox, ASlowReader_IsWaitedForByNobodyElse) {
    const Client slow;
    const Client quick;
    slow.Fill();
    EXPECT_EQ(6, Outbox::Send(quick.socket, "hello|"));
    EXPECT_EQ("hello|", quick.Receive());
}

TEST(Outbox, APeerThatHasGone_IsAnErrorAndKillsNothing) {
    Client client;
    client.ClosePeer();
    errno = 0;
    EXPECT_EQ(-1, Outbox::Send(client.socket, "lost"));
    EXPECT_EQ(EPIPE, errno);
}

TEST(Outbox, APeerThatGoesWhileSomethingWaits_LeavesNothingWaiting) {
    Client client;
    client.Fill();
    client.ClosePeer();
    Outbox::Flush(client.socket);
    EXPECT_FALSE(Outbox::IsWaiting(client.socket));
    EXPECT_EQ(-1, Outbox::Send(client.socket, "lost"));
}

TEST(Outbox, ClosingWhileSomethingWaits_LeavesNothingForTheNextWithTheNumber) {
    Client client;
    client.Fill();
    EXPECT_TRUE(Outbox::Close(client.socket));
    EXPECT_FALSE(Outbox::IsWaiting(client.socket));
    client.ClosePeer();
    const Client next;
    ASSERT_EQ(client.socket, next.socket);
    EXPECT_FALSE(Outbox::IsWaiting(next.socket));
    EXPECT_EQ(5, Outbox::Send(next.socket, "mine|"));
    EXPECT_EQ("mine|", next.Receive());
}

TEST(Outbox, ARefusedSend_DoesNotChangeWhatWaits) {
    const Client client;
    const std::string sent = client.Fill();
    EXPECT_EQ(0, Outbox::Send(client.socket, ""));
    EXPECT_TRUE(Outbox::IsWaiting(client.socket));
    Outbox::Flush(client.socket);
    EXPECT_TRUE(Outbox::IsWaiting(client.socket));
    EXPECT_TRUE(sent == client.ReceiveEverything());
}

// The callback of a client on a run loop: sends what waits and goes when that is done.
void Write(CFSocketRef socket, CFSocketCallBackType type, CFDataRef /*address*/,
           const void* /*data*/, void* info) {
    const int client = *static_cast<int*>(info);
    EXPECT_EQ(CFSocketCallBackType{kCFSocketWriteCallBack}, type);
    EXPECT_TRUE(Outbox::IsWaiting(client));
    Outbox::Flush(client);
    if (!Outbox::IsWaiting(client)) {
        CFSocketInvalidate(socket);
    }
}

TEST(Outbox, WhenAClientCanBeWritten_ItsRunLoopSaysSo) {
    InChild([] {
        int ends[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        ASSERT_EQ(0, fcntl(ends[0], F_SETFL, O_NONBLOCK));
        CFSocketContext context = {0, &ends[0], nullptr, nullptr, nullptr};
        const auto wrapper = CFOwner<CFSocketRef>::Adopt(CFSocketCreateWithNative(
            kCFAllocatorDefault, ends[0], kCFSocketWriteCallBack, Write, &context));
        CFSocketSetSocketFlags(wrapper.Get(), 0);
        CFSocketDisableCallBacks(wrapper.Get(), kCFSocketWriteCallBack);
        const auto source = CFOwner<CFRunLoopSourceRef>::Adopt(
            CFSocketCreateRunLoopSource(kCFAllocatorDefault, wrapper.Get(), 0));
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopCommonModes);
        Outbox::Open(ends[0], wrapper.Get());
        const std::string message(5 * kMegabyte, 'x');
        EXPECT_EQ(static_cast<long>(message.size()), Outbox::Send(ends[0], message));
        std::size_t received = 0;
        std::thread reader([&received, peer = ends[1]] {
            char part[65536];
            while (received < 5 * kMegabyte) {
                const ssize_t length = recv(peer, part, sizeof part, 0);
                ASSERT_GT(length, 0);
                received += static_cast<std::size_t>(length);
            }
        });
        CFRunLoopRun();
        reader.join();
        EXPECT_EQ(5 * kMegabyte, received);
    });
}

TEST(Outbox, AReaderThatNeverCatchesUp_CostsNoMoreThanWhatWaits) {
    SKIP_WHERE_ADDRESSES_ARE_WATCHED();
    InChild([] {
        const Client client;
        const auto peakInMegabytes = [] {
            rusage usage;
            getrusage(RUSAGE_SELF, &usage);
            return usage.ru_maxrss / 1024;
        };
        client.Fill();
        Outbox::Send(client.socket, std::string(kMegabyte, 'w'));
        const std::string piece(kMegabyte / 8, 'x');
        bool alwaysWaited = true;
        const auto turn = [&] {
            Outbox::Send(client.socket, piece);
            client.Receive(piece.size());
            Outbox::Flush(client.socket);
            alwaysWaited = alwaysWaited && Outbox::IsWaiting(client.socket);
        };
        for (int i = 0; i < 400; ++i) {
            turn();
        }
        const long before = peakInMegabytes();
        // 500 MB more, of which never more than one waits.
        for (int i = 0; i < 4000; ++i) {
            turn();
        }
        EXPECT_LT(peakInMegabytes() - before, 50);
        EXPECT_TRUE(alwaysWaited);
    });
}

TEST(Outbox, MessagesOfManyThreads_AreNeverMixed) {
    InChild([] {
        constexpr int kThreads = 4;
        constexpr int kMessages = 300;
        const Client client;
        std::atomic<int> running{kThreads};
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&, thread] {
                // Longer than the system takes at once, now and then.
                const std::string message(static_cast<std::size_t>(1000 * (thread * 20 + 1)),
                                          static_cast<char>('a' + thread));
                for (int i = 0; i < kMessages; ++i) {
                    while (Outbox::Send(client.socket, message + "|") == -1) {
                        ASSERT_EQ(EAGAIN, errno);
                        std::this_thread::yield();
                    }
                }
                --running;
            });
        }
        std::string all;
        const bool ended = WaitUntil([&] {
            all += client.Receive();
            Outbox::Flush(client.socket);
            return running == 0 && !Outbox::IsWaiting(client.socket);
        });
        for (std::thread& thread : threads) {
            thread.join();
        }
        all += client.Receive();
        EXPECT_TRUE(ended);
        std::map<std::string, int> counts;
        for (std::size_t from = 0; from < all.size();) {
            const std::size_t bar = all.find('|', from);
            ASSERT_NE(std::string::npos, bar);
            ++counts[all.substr(from, bar - from)];
            from = bar + 1;
        }
        EXPECT_EQ(static_cast<std::size_t>(kThreads), counts.size());
        for (const auto& [message, count] : counts) {
            EXPECT_EQ(kMessages, count) << message.substr(0, 10);
            EXPECT_EQ(std::string::npos, message.find_first_not_of(message[0]));
        }
    });
}

TEST(Outbox, WhatIsGatheredForAClientTooFarBehind_IsRefusedUntilItHasRead) {
    const Client client;
    const std::string sent(Outbox::kMostWaiting + 2 * kMegabyte, 'x');
    ASSERT_EQ(static_cast<long>(sent.size()), Outbox::Send(client.socket, sent));
    {
        const Outbox::Gathering together;
        errno = 0;
        EXPECT_EQ(-1, Outbox::Send(client.socket, "lost"));
        EXPECT_EQ(EAGAIN, errno);
    }
    EXPECT_TRUE(sent == client.ReceiveEverything());
    {
        const Outbox::Gathering together;
        EXPECT_EQ(1, Outbox::Send(client.socket, "y"));
        EXPECT_EQ(1, Outbox::Send(client.socket, "z"));
        EXPECT_EQ("", client.Receive());
    }
    EXPECT_EQ("yz", client.Receive());
}

TEST(Outbox, WhatIsGatheredAfterALoss_IsSentAtOnceSoThatTheNextLossIsTold) {
    Client client;
    client.ClosePeer();
    {
        const Outbox::Gathering together;
        EXPECT_EQ(4, Outbox::Send(client.socket, "lost"));
    }
    for (int time = 0; time < 2; ++time) {
        const Outbox::Gathering together;
        for (int message = 0; message < 2; ++message) {
            errno = 0;
            EXPECT_EQ(-1, Outbox::Send(client.socket, "lost"));
            EXPECT_EQ(EPIPE, errno);
        }
    }
}

TEST(Outbox, WhatIsGatheredAfterWhatWaitedWasLost_IsToldToBeLost) {
    Client client;
    client.Fill();
    client.ClosePeer();
    Outbox::Flush(client.socket);
    const Outbox::Gathering together;
    EXPECT_EQ(-1, Outbox::Send(client.socket, "lost"));
}

TEST(Outbox, ALoss_IsNotHeldAgainstTheNextWithTheNumber) {
    Client client;
    client.ClosePeer();
    {
        const Outbox::Gathering together;
        Outbox::Send(client.socket, "lost");
    }
    Outbox::Close(client.socket);
    const Client next;
    ASSERT_EQ(client.socket, next.socket);
    {
        const Outbox::Gathering together;
        EXPECT_EQ(5, Outbox::Send(next.socket, "mine|"));
        EXPECT_EQ("", next.Receive());
    }
    EXPECT_EQ("mine|", next.Receive());
}

TEST(Outbox, ClosingAndSendingAtOnce_ReachesOnlyTheClient) {
    InChild([] {
        // The number that a client leaves behind is taken by a pipe: nothing may come through it.
        int pipe[2];
        ASSERT_EQ(0, pipe2(pipe, O_CLOEXEC | O_NONBLOCK));
        std::atomic<int> number{-1};
        std::atomic<bool> ending{false};
        std::thread sender([&] {
            while (!ending) {
                Outbox::Send(number, "for the client alone");
            }
        });
        for (int round = 0; round < 2000; ++round) {
            Client client;
            number = client.socket;
            Outbox::Close(client.socket);
            const int taken = fcntl(pipe[1], F_DUPFD_CLOEXEC, 0);
            close(taken);
        }
        ending = true;
        sender.join();
        char byte;
        EXPECT_EQ(-1, read(pipe[0], &byte, 1));
    });
}

}  // namespace
