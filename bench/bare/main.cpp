// The yardstick: a single-threaded server that does the least that a server can do. One epoll set,
// one recv and one send a request; it looks at nothing and remembers nothing.
//
//     bench-bare --port PORT --answers HOW [--answer TEXT]
//
// one      one answer for whatever a recv brings: right when requests come one at a time
// each     one send for every "|" received: what the service's protocol asks for
// all      the answers to all "|" of one recv in one send: the least that pipelining can cost
// relay    a message, up to its "|", goes to all other clients, one send each
// pen      pen events of a process go to the client that names it: one send for a pressure and one
//          for a text, as the service's protocol asks for
// pen-all  the same with one send for both

#include <sys/epoll.h>

#include <cstdio>
#include <string>

#include "bare/Behaviours.h"
#include "bare/Sockets.h"
#include "support/Failure.h"
#include "support/Limits.h"
#include "support/Options.h"

namespace {

constexpr int kEvents = 64;

std::unique_ptr<Behaviour> BehaviourFrom(const Options& options, int epoll) {
    const std::string answers = options.Has("answers") ? options.Text("answers") : "one";
    if (answers == "relay") return MakeRelaying();
    if (answers == "pen") return MakePenHop(epoll, false);
    if (answers == "pen-all") return MakePenHop(epoll, true);
    return MakeAnswering(options);
}

[[noreturn]] void Run(int epoll, int listener, Behaviour& behaviour) {
    Watch(epoll, listener);
    epoll_event events[kEvents];
    for (;;) {
        const int ready = epoll_wait(epoll, events, kEvents, -1);
        for (int index = 0; index < ready; ++index) {
            const int socket = events[index].data.fd;
            if (socket == listener) {
                const int client = Accept(listener);
                if (client >= 0) {
                    Watch(epoll, client);
                    behaviour.Came(client);
                }
            } else if (!behaviour.Serve(socket)) {
                behaviour.Went(socket);
                close(socket);
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options(argc, argv, 1);
        AllowManyDescriptors();
        const Descriptor epoll(epoll_create1(EPOLL_CLOEXEC));
        const auto behaviour = BehaviourFrom(options, epoll.Get());
        const Descriptor listener = Listen(static_cast<int>(options.Number("port")));
        Run(epoll.Get(), listener.Get(), *behaviour);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench-bare: %s\n", failure.what());
        return 1;
    }
}
