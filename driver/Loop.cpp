#include "driver/Loop.h"

#include <sys/epoll.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace driver {
namespace {

void Control(int set, int operation, int descriptor, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    if (epoll_ctl(set, operation, descriptor, &event) == -1) {
        throw std::system_error(errno, std::generic_category(), "cannot watch a descriptor");
    }
}

}  // namespace

Loop::Loop() : set(epoll_create1(EPOLL_CLOEXEC)) {
    if (!set.IsOpen()) {
        throw std::system_error(errno, std::generic_category(), "cannot wait for anything");
    }
}

void Loop::Watch(int descriptor, std::uint32_t events, Handler handler) {
    Control(set.Get(), EPOLL_CTL_ADD, descriptor, events);
    handlers[descriptor] = std::make_shared<const Handler>(std::move(handler));
}

void Loop::Change(int descriptor, std::uint32_t events) {
    Control(set.Get(), EPOLL_CTL_MOD, descriptor, events);
}

void Loop::Forget(int descriptor) {
    if (handlers.erase(descriptor) != 0) {
        Control(set.Get(), EPOLL_CTL_DEL, descriptor, 0);
    }
}

void Loop::Run() {
    stopped = false;
    while (!stopped) {
        // One at a time: a handler may close the descriptor that the next event would be for.
        epoll_event event;
        const int count = epoll_wait(set.Get(), &event, 1, -1);
        if (count == -1 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot wait for anything");
        }
        const auto found = count == 1 ? handlers.find(event.data.fd) : handlers.end();
        if (found != handlers.end()) {
            // Kept: the handler may forget itself.
            const std::shared_ptr<const Handler> handler = found->second;
            (*handler)(event.events);
        }
    }
}

}  // namespace driver
