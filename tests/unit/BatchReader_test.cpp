#include "net/BatchReader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <random>
#include <string>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::size_t kChunk = 512;

// Two connected ends; ours does not block.
class Pair {
  public:
    Pair() {
        int ends[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
        ours = ends[0];
        theirs = ends[1];
        const int size = 1 << 20;
        setsockopt(theirs, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    ~Pair() {
        close(ours);
        Close();
    }
    void Send(const std::string& bytes) const {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), send(theirs, bytes.data(), bytes.size(), 0));
    }
    void Close() {
        if (theirs != -1) {
            close(theirs);
            theirs = -1;
        }
    }

    int ours;
    int theirs;
};

struct Read {
    Received received;
    std::string batch;
};

Read ReadFrom(const Pair& pair) {
    Read read;
    read.received = ReceiveBatch(pair.ours, read.batch);
    return read;
}

// Runs BODY in a process of its own, behind the log's own first line.
void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

TEST(ReceiveBatch, TakesWhatIsThere) {
    const Pair pair;
    pair.Send("platform|");
    const Read read = ReadFrom(pair);
    EXPECT_EQ(Received::kBatch, read.received);
    EXPECT_EQ("platform|", read.batch);
}

TEST(ReceiveBatch, AppendsToWhatTheBatchHolds) {
    const Pair pair;
    pair.Send("behind");
    std::string batch = "before ";
    EXPECT_EQ(Received::kBatch, ReceiveBatch(pair.ours, batch));
    EXPECT_EQ("before behind", batch);
}

TEST(ReceiveBatch, OfAnyLength_IsWholeAndInOrder) {
    std::mt19937 random(5);
    for (const std::size_t length :
         {std::size_t{1}, kChunk - 1, kChunk, kChunk + 1, 2 * kChunk - 1, 2 * kChunk,
          2 * kChunk + 1, 16384 + kChunk, std::size_t{16384}, std::size_t{50000}}) {
        const Pair pair;
        std::string bytes(length, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        pair.Send(bytes);
        const Read read = ReadFrom(pair);
        EXPECT_EQ(Received::kBatch, read.received) << length;
        EXPECT_TRUE(bytes == read.batch) << length;
        EXPECT_EQ(Received::kNothing, ReadFrom(pair).received) << length;
    }
}

TEST(ReceiveBatch, WithNothingThere_IsSilent) {
    Quietly([] {
        const Pair pair;
        const Read read = ReadFrom(pair);
        EXPECT_EQ(Received::kNothing, read.received);
        EXPECT_EQ("", read.batch);
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_EQ("", PrintedErrors());
    });
}

TEST(ReceiveBatch, FromAPeerThatHasClosed_IsTheEnd) {
    Pair pair;
    pair.Close();
    EXPECT_EQ(Received::kClosed, ReadFrom(pair).received);
}

TEST(ReceiveBatch, BeforeTheEnd_IsABatchFirst) {
    for (const std::size_t length :
         {std::size_t{1}, std::size_t{9}, kChunk, 2 * kChunk, 2 * kChunk + 9, 3 * kChunk}) {
        Quietly([length] {
            Pair pair;
            pair.Send(std::string(length, 'x'));
            pair.Close();
            const Read read = ReadFrom(pair);
            EXPECT_EQ(Received::kBatch, read.received) << length;
            EXPECT_EQ(length, read.batch.size());
            EXPECT_EQ(Received::kClosed, ReadFrom(pair).received);
            EXPECT_THAT(Printed(), IsEmpty());
        });
    }
}

// A TCP connection that its peer resets.
int ResetConnection() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), length));
    EXPECT_EQ(0, listen(listener, 1));
    EXPECT_EQ(0, getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length));
    const int peer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, connect(peer, reinterpret_cast<sockaddr*>(&address), length));
    const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    const linger atOnce = {1, 0};
    EXPECT_EQ(0, setsockopt(peer, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce));
    close(peer);
    close(listener);
    return accepted;
}

TEST(ReceiveBatch, OfAResetConnection_SaysSoOnceAndThenIsTheEnd) {
    Quietly([] {
        const int socket = ResetConnection();
        std::string batch;
        EXPECT_EQ(Received::kNothing, ReceiveBatch(socket, batch));
        EXPECT_THAT(Printed(), ElementsAre("error receive error"));
        EXPECT_EQ("receive error: Connection reset by peer\n", PrintedErrors());
        EXPECT_EQ(Received::kClosed, ReceiveBatch(socket, batch));
        EXPECT_THAT(Printed(), IsEmpty());
        close(socket);
    });
}

TEST(ReceiveBatch, InterruptedByASignal_SaysThatItRecovers) {
    Quietly([] {
        const Pair pair;
        pair.Send("x");
        LetFail(SYS_recvfrom, EINTR);
        EXPECT_EQ(Received::kNothing, ReadFrom(pair).received);
        EXPECT_THAT(Printed(), ElementsAre("recovering recv after fork/exec"));
        EXPECT_EQ("", PrintedErrors());
    });
}

TEST(ReceiveBatch, OfAWrongDescriptor_IsAnError) {
    Quietly([] {
        std::string batch;
        EXPECT_EQ(Received::kNothing, ReceiveBatch(-1, batch));
        EXPECT_THAT(Printed(), ElementsAre("error receive error"));
        EXPECT_EQ("receive error: Bad file descriptor\n", PrintedErrors());
    });
}

TEST(ReceiveBatch, EndsSoThatOneClientDoesNotKeepTheOthersWaiting) {
    const Pair pair;
    std::size_t sent = 0;
    while (send(pair.theirs, std::string(kChunk, 'x').data(), kChunk, 0) ==
           static_cast<ssize_t>(kChunk)) {
        sent += kChunk;
    }
    ASSERT_GT(sent, 2 * kLargestBatch) << "the system keeps too little for this test";
    std::size_t received = 0;
    for (int batches = 0; received < sent; ++batches) {
        const Read read = ReadFrom(pair);
        ASSERT_EQ(Received::kBatch, read.received);
        EXPECT_LT(read.batch.size(), 2 * kLargestBatch);
        received += read.batch.size();
    }
    EXPECT_EQ(sent, received);
}

TEST(ReceiveBatch, ThatIsLarge_DoesNotEndInsideACharacter) {
    // Every place of the end within a character of three bytes, and of four.
    for (const std::string& character :
         {std::string("\xE2\x82\xAC"), std::string("\xF0\x9F\x96\x8A")}) {
        for (std::size_t before = 0; before < character.size(); ++before) {
            const Pair pair;
            std::string bytes(before, 'x');
            while (bytes.size() < kLargestBatch + 5000) {
                bytes += character;
            }
            pair.Send(bytes);
            std::string together;
            while (together.size() < bytes.size()) {
                const Read read = ReadFrom(pair);
                ASSERT_EQ(Received::kBatch, read.received);
                EXPECT_NE(L"Utf8 conversion failed", Helpers::wstringFromUtf8(read.batch));
                together += read.batch;
            }
            EXPECT_TRUE(bytes == together);
        }
    }
}

}  // namespace
