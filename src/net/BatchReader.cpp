#include "net/BatchReader.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "core/ConvertUTF.h"
#include "core/Helpers.h"
#include "core/PerThread.h"

namespace {

constexpr std::size_t kChunk = 512;
// Of a UTF-8 sequence whose beginning is there.
constexpr std::size_t kMostMissingBytes = 3;

// Kept by each thread that reads: too large for its stack, and nothing of it is there before a
// client sends that much.
struct Room {
    const std::unique_ptr<char[]> bytes{new char[kLargestBatch]};
};

// Appends at most MOST bytes to BATCH and returns what recv did.
ssize_t ReceiveInto(std::string& batch, int socket, std::size_t most) {
    struct Tag;
    char* const bytes = PerThread<Room, Tag>().bytes.get();
    const ssize_t length = recv(socket, bytes, most, 0);
    if (length > 0) {
        batch.append(bytes, static_cast<std::size_t>(length));
    }
    return length;
}

void ReportReceiveError() {
    if (errno == EINTR) {
        Helpers::logprint("recovering recv after fork/exec");
    } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
        std::perror("receive error");
        Helpers::logprint("error receive error");
    }
}

// How much to ask for next; 0 when the batch is large enough. Behind a full chunk it is all that
// there is room for; the batch ends where reading chunk by chunk would have ended it.
std::size_t NextRoom(const std::string& batch) {
    if (batch.empty()) {
        return kChunk;
    }
    return batch.size() < kLargestBatch ? kLargestBatch - batch.size() : MissingUTF8Bytes(batch);
}

}  // namespace

Received ReceiveBatch(int socket, std::string& batch) {
    while (const std::size_t room = NextRoom(batch)) {
        if (!batch.empty()) {
            // A long one: one piece of memory for all of it.
            batch.reserve(kLargestBatch + kMostMissingBytes);
        }
        const ssize_t length = ReceiveInto(batch, socket, room);
        if (length < 0) {
            ReportReceiveError();
            break;
        }
        if (length == 0 && batch.empty()) {
            return Received::kClosed;
        }
        if (length == 0 || batch.size() % kChunk != 0) {
            break;
        }
    }
    return batch.empty() ? Received::kNothing : Received::kBatch;
}
