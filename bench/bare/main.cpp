// The yardstick: a single-threaded server that does the least that a server can do. One epoll set,
// one recv and one send a request; it looks at nothing and remembers nothing.
//
//     bench-bare --port PORT --answer TEXT [--answers one|each|all]
//
// one   one answer for whatever a recv brings: right when requests come one at a time
// each  one send for every "|" received: what the service's protocol asks for
// all   the answers to all "|" of one recv in one send: the least that pipelining can cost

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "support/Descriptor.h"
#include "support/Failure.h"
#include "support/Limits.h"
#include "support/Options.h"

namespace {

enum class Answers { kOne, kEach, kAll };

constexpr int kBacklog = 1024;
constexpr int kEvents = 64;
constexpr std::size_t kSmall = 512;
constexpr std::size_t kLarge = 16384;

Answers AnswersFrom(const std::string& word) {
    if (word == "one") return Answers::kOne;
    if (word == "each") return Answers::kEach;
    if (word == "all") return Answers::kAll;
    throw Failure("--answers is one, each or all, not " + word);
}

Descriptor Listen(int port) {
    Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener.Get(), kBacklog) != 0) {
        FailWithErrno("listen");
    }
    return listener;
}

void Watch(int epoll, int socket) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = socket;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, socket, &event) != 0) {
        FailWithErrno("epoll_ctl");
    }
}

void Accept(int epoll, int listener) {
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client < 0) {
        return;
    }
    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Watch(epoll, client);
}

// False when the client is gone. A full socket is waited for: the only client that fills it is the
// one that is being measured.
bool SendAll(int client, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t sent = send(client, bytes, length, MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes += sent;
            length -= static_cast<std::size_t>(sent);
        } else if (errno == EAGAIN) {
            pollfd writable = {client, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

class Server {
  public:
    Server(const std::string& text, Answers way)
        : answer(text), answers(way), room(way == Answers::kOne ? kSmall : kLarge) {
        for (std::size_t count = 0; answers == Answers::kAll && count < room; ++count) {
            repeated += answer;
        }
    }

    // False when the connection has come to its end.
    bool Serve(int client) const {
        char bytes[kLarge];
        const ssize_t length = recv(client, bytes, room, 0);
        if (length <= 0) {
            return length < 0 && (errno == EAGAIN || errno == EINTR);
        }
        if (answers == Answers::kOne) {
            return SendAll(client, answer.data(), answer.size());
        }
        const auto requests = static_cast<std::size_t>(std::count(bytes, bytes + length, '|'));
        if (answers == Answers::kAll) {
            return SendAll(client, repeated.data(), requests * answer.size());
        }
        for (std::size_t request = 0; request < requests; ++request) {
            if (!SendAll(client, answer.data(), answer.size())) {
                return false;
            }
        }
        return true;
    }

  private:
    const std::string answer;
    const Answers answers;
    const std::size_t room;
    std::string repeated;
};

[[noreturn]] void Run(int listener, const Server& server) {
    const Descriptor epoll(epoll_create1(EPOLL_CLOEXEC));
    Watch(epoll.Get(), listener);
    epoll_event events[kEvents];
    for (;;) {
        const int ready = epoll_wait(epoll.Get(), events, kEvents, -1);
        for (int index = 0; index < ready; ++index) {
            const int socket = events[index].data.fd;
            if (socket == listener) {
                Accept(epoll.Get(), listener);
            } else if (!server.Serve(socket)) {
                close(socket);
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options(argc, argv, 1);
        const std::string answers = options.Has("answers") ? options.Text("answers") : "one";
        const Server server(options.Text("answer"), AnswersFrom(answers));
        AllowManyDescriptors();
        const Descriptor listener = Listen(static_cast<int>(options.Number("port")));
        Run(listener.Get(), server);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench-bare: %s\n", failure.what());
        return 1;
    }
}
