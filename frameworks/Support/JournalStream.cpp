#include "Support/JournalStream.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace frameworks {
namespace {

// The lines that journald expects first: the identifier, no unit, the priority "information", that
// lines may begin with a priority of their own, and three times that nothing is to be passed on.
std::string Head(std::string_view identifier) {
    std::string head(identifier);
    std::replace(head.begin(), head.end(), '\n', ' ');
    return head + "\n\n6\n1\n0\n0\n0\n";
}

}  // namespace

UniqueDescriptor OpenJournalStream(std::string_view identifier, const char* socketPath) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (std::strlen(socketPath) >= sizeof address.sun_path) return {};
    std::strcpy(address.sun_path, socketPath);
    // A journal that is too busy to answer is as good as none: nothing waits for it.
    UniqueDescriptor stream(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!stream.IsOpen() ||
        connect(stream.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        return {};
    }
    const std::string head = Head(identifier);
    if (send(stream.Get(), head.data(), head.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(head.size())) {
        return {};
    }
    shutdown(stream.Get(), SHUT_RD);
    // Programs write to it as to any standard output.
    fcntl(stream.Get(), F_SETFL, 0);
    return stream;
}

}  // namespace frameworks
