#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>

#include "bare/Behaviours.h"
#include "bare/Sockets.h"
#include "frameworks/CoreGraphics/PenEventRecord.h"
#include "support/Failure.h"

namespace {

// Four digits and a NUL, as the service has them.
char* AppendPressure(char* to, double share) {
    int value = static_cast<int>(share / 2.000031 * 1024.0);
    for (char* digit = to + 3; digit >= to; --digit) {
        *digit = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    to[4] = '\0';
    return to + 5;
}

// The least that a service for pen data can do: one recv an event, one send for the pressure and
// one for the text, or one for both, and numbers as text in between. It knows one client.
class PenHop : public Behaviour {
  public:
    PenHop(int itsEpoll, bool itsTogether) : epoll(itsEpoll), together(itsTogether) {}

    bool Serve(int socket) override {
        return tap.IsOpen() && socket == tap.Get() ? Hand() : Tap(socket);
    }
    // The measurement is over.
    void Went(int /*socket*/) override {
        tap = Descriptor();
        client = -1;
    }

  private:
    bool Tap(int speaker) {
        char number[32] = "";
        const ssize_t length = recv(speaker, number, sizeof number - 1, 0);
        if (length <= 0) {
            return length < 0 && (errno == EAGAIN || errno == EINTR);
        }
        client = speaker;
        Descriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const penEvents::Address address = penEvents::AddressOf(std::atoi(number));
        if (connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address.name),
                    address.length) != 0) {
            return false;
        }
        tap = std::move(connection);
        Watch(epoll, tap.Get());
        return SendAll(client, "|", 1);
    }

    // A socket that has ended stays in the set only until it is closed, so the end is not told.
    bool Hand() {
        penEvents::Record event;
        const ssize_t length = recv(tap.Get(), &event, sizeof event, 0);
        if (length != sizeof event) {
            tap = Descriptor();
            return true;
        }
        char text[80];
        char* begin = text;
        char* end = text;
        if (event.type == penEvents::kDown) {
            *end++ = 'd';
        } else {
            end = AppendPressure(end, event.pressure);
            if (!together) {
                SendAll(client, begin, static_cast<std::size_t>(end - begin));
                begin = end;
            }
            *end++ = 'm';
        }
        end = std::to_chars(end, text + 50, static_cast<int>(event.x)).ptr;
        *end++ = '_';
        end = std::to_chars(end, text + sizeof text - 1, static_cast<int>(event.y)).ptr;
        *end++ = ' ';
        SendAll(client, begin, static_cast<std::size_t>(end - begin));
        return true;
    }

    const int epoll;
    const bool together;
    Descriptor tap;
    int client = -1;
};

}  // namespace

std::unique_ptr<Behaviour> MakePenHop(int epoll, bool together) {
    return std::make_unique<PenHop>(epoll, together);
}
