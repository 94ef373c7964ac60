#include "net/BatchReader.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdio>

#include "core/ConvertUTF.h"
#include "core/Helpers.h"

namespace {

constexpr std::size_t kChunk = 512;
// Behind a full chunk many are taken at a time; the batch ends where reading them one by one would
// have ended it.
constexpr std::size_t kManyChunks = 32 * kChunk;

// Appends at most ROOM bytes to BATCH and returns what recv did.
ssize_t ReceiveInto(std::string& batch, int socket, std::size_t room) {
    char bytes[kManyChunks];
    const ssize_t length = recv(socket, bytes, room, 0);
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

// How much to ask for next; 0 when the batch is large enough.
std::size_t NextRoom(const std::string& batch) {
    if (batch.empty()) {
        return kChunk;
    }
    return batch.size() < kLargestBatch ? kManyChunks : MissingUTF8Bytes(batch);
}

}  // namespace

Received ReceiveBatch(int socket, std::string& batch) {
    while (const std::size_t room = NextRoom(batch)) {
        if (!batch.empty()) {
            // A long one: one piece of memory for all of it.
            batch.reserve(kLargestBatch + kManyChunks);
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
