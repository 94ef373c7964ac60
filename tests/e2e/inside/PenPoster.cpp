// A process that posts pen events, sense or nonsense, as it is told.
//
// Usage: PenPoster [USER]   become that user first; only root can
//
// On standard input: how many bytes a packet has and how many times it is to be posted, 32 bits
// each in the machine's byte order, and the packet's bytes; and so on. A packet goes to everybody
// who has tapped this process by then, and nobody is overtaken: it waits for the slowest. Ends with
// its input.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "frameworks/CoreGraphics/PenEventRecord.h"
#include "support/Descriptor.h"

namespace {

constexpr int kBacklog = 16;

Descriptor Listen() {
    Descriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const penEvents::Address address = penEvents::AddressOf(getpid());
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address.name), address.length) !=
            0 ||
        listen(listener.Get(), kBacklog) != 0) {
        _exit(1);
    }
    return listener;
}

// False at the end of the input.
bool Read(char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t count = read(STDIN_FILENO, bytes, length);
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        bytes += count;
        length -= static_cast<std::size_t>(count);
    }
    return true;
}

bool Read(std::uint32_t& number) {
    return Read(reinterpret_cast<char*>(&number), sizeof number);
}

class Taps {
  public:
    explicit Taps(Descriptor itsListener) : listener(std::move(itsListener)) {}

    void Post(const std::string& packet) {
        Accept();
        for (const Descriptor& tap : taps) {
            while (send(tap.Get(), packet.data(), packet.size(), MSG_NOSIGNAL) == -1 &&
                   errno == EINTR) {
            }
        }
    }

  private:
    void Accept() {
        for (;;) {
            Descriptor tap(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!tap) {
                return;
            }
            taps.push_back(std::move(tap));
        }
    }

    Descriptor listener;
    std::vector<Descriptor> taps;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        const auto user = static_cast<uid_t>(std::atoi(argv[1]));
        if (setresuid(user, user, user) != 0) {
            return 1;
        }
    }
    Taps taps(Listen());
    std::uint32_t length = 0;
    std::uint32_t times = 0;
    while (Read(length) && Read(times)) {
        std::string packet(length, '\0');
        if (!Read(packet.data(), packet.size())) {
            break;
        }
        for (; times > 0; --times) {
            taps.Post(packet);
        }
    }
}
