#include "net/Outbox.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <mutex>

#include "core/Owners.h"
#include "core/PerThread.h"

namespace {

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
// There the sockets carry SO_NOSIGPIPE.
constexpr int kSendFlags = 0;
#endif

struct Client {
    // Held while one message is handed to the system, so that two threads never mix theirs.
    std::mutex mutex;
    CFOwner<CFSocketRef> wrapper;
    std::string waiting;
    // How much of `waiting` has been sent.
    std::size_t sent = 0;
    // What was last to be sent was lost, and whoever had handed it over may not know.
    bool hasLost = false;

    bool IsTooFarBehind() const { return waiting.size() - sent > Outbox::kMostWaiting; }
};

// By socket number. Grows to the highest number ever used and never moves, so that a Client
// outlives the lock under which it was found. Never destroyed, because threads may still send while
// the process ends.
struct Table {
    std::mutex mutex;
    std::deque<Client> clients;
};

Table& TheTable() {
    static Table& table = *new Table();
    return table;
}

Client* Find(int socket) {
    Table& table = TheTable();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto index = static_cast<std::size_t>(socket);
    return socket >= 0 && index < table.clients.size() ? &table.clients[index] : nullptr;
}

// The client SOCKET, if it is one, under its lock.
class LockedClient {
  public:
    explicit LockedClient(int socket) : client(Find(socket)) {
        if (client != nullptr) {
            lock = std::unique_lock<std::mutex>(client->mutex);
        }
    }

    explicit operator bool() const { return client != nullptr && client->wrapper; }
    Client* operator->() const { return client; }
    Client& operator*() const { return *client; }

  private:
    Client* client;
    std::unique_lock<std::mutex> lock;
};

Client& FindOrAdd(int socket) {
    Table& table = TheTable();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto index = static_cast<std::size_t>(socket);
    while (table.clients.size() <= index) {
        table.clients.emplace_back();
    }
    return table.clients[index];
}

void Forget(Client& client) {
    std::string().swap(client.waiting);
    client.sent = 0;
}

// How many bytes the system took, 0 when it takes none now, -1 when it never will.
long SendNow(int socket, const char* bytes, std::size_t length) {
    for (;;) {
        const ssize_t taken = send(socket, bytes, length, kSendFlags);
        if (taken >= 0) {
            return static_cast<long>(taken);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return 0;
        }
        if (errno != EINTR) {
            return -1;
        }
    }
}

}  // namespace

void Outbox::Open(int socket, CFSocketRef wrapper) {
    Client& client = FindOrAdd(socket);
    const std::lock_guard<std::mutex> lock(client.mutex);
    Forget(client);
    client.hasLost = false;
    client.wrapper = CFOwner<CFSocketRef>::Retain(wrapper);
}

bool Outbox::Close(int socket) {
    const LockedClient client(socket);
    if (!client) {
        return false;
    }
    // First, because the number is free for the other thread as soon as the descriptor is closed.
    CFSocketInvalidate(client->wrapper.Get());
    client->wrapper = CFOwner<CFSocketRef>();
    Forget(*client);
    ::close(socket);
    return true;
}

// One that the calling thread has, or null.
Outbox::Gathering*& Outbox::GatheringOfThisThread() {
    struct Tag;
    return PerThread<Gathering*, Tag>();
}

Outbox::Gathering::Gathering() {
    GatheringOfThisThread() = this;
}

Outbox::Gathering::~Gathering() {
    GatheringOfThisThread() = nullptr;
    if (!bytes.empty()) {
        SendAtOnce(socket, bytes);
    }
}

long Outbox::Gathering::Add(int itsSocket, const std::string& more) {
    if (itsSocket != socket && !bytes.empty()) {
        return SendAtOnce(itsSocket, more);
    }
    if (bytes.empty() && !MayGather(itsSocket)) {
        return SendAtOnce(itsSocket, more);
    }
    socket = itsSocket;
    bytes += more;
    return static_cast<long>(more.size());
}

// Not when the sender has to be told what becomes of it.
bool Outbox::MayGather(int socket) {
    const LockedClient client(socket);
    return client && !client->hasLost && !client->IsTooFarBehind();
}

long Outbox::Send(int socket, const std::string& bytes) {
    Gathering* const gathering = GatheringOfThisThread();
    return gathering != nullptr ? gathering->Add(socket, bytes) : SendAtOnce(socket, bytes);
}

long Outbox::SendAtOnce(int socket, const std::string& bytes) {
    const LockedClient client(socket);
    if (!client) {
        errno = EBADF;
        return -1;
    }
    const auto length = static_cast<long>(bytes.size());
    if (!client->waiting.empty()) {
        if (client->IsTooFarBehind()) {
            errno = EAGAIN;
            return -1;
        }
        client->waiting += bytes;
        return length;
    }
    const long taken = SendNow(socket, bytes.data(), bytes.size());
    if (taken >= 0 && taken < length) {
        client->waiting.assign(bytes, static_cast<std::size_t>(taken));
        CFSocketEnableCallBacks(client->wrapper.Get(), kCFSocketWriteCallBack);
    }
    client->hasLost = taken < 0;
    return taken < 0 ? -1 : length;
}

bool Outbox::IsWaiting(int socket) {
    const LockedClient client(socket);
    return client && !client->waiting.empty();
}

void Outbox::Flush(int socket) {
    const LockedClient client(socket);
    if (!client || client->waiting.empty()) {
        return;
    }
    const long taken = SendNow(socket, client->waiting.data() + client->sent,
                               client->waiting.size() - client->sent);
    if (taken > 0) {
        client->sent += static_cast<std::size_t>(taken);
    }
    if (taken < 0 || client->sent == client->waiting.size()) {
        client->hasLost = taken < 0;
        Forget(*client);
        return;
    }
    // A reader that never quite catches up must not make us keep what it has long had. Half at a
    // time, so that every byte is moved once at the most.
    if (client->sent > client->waiting.size() / 2) {
        client->waiting.erase(0, client->sent);
        client->sent = 0;
    }
    CFSocketEnableCallBacks(client->wrapper.Get(), kCFSocketWriteCallBack);
}
