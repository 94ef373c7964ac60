#include "support/Packet.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t kLargestPacket = 128 * 1024;

union ControlRoom {
    cmsghdr align;
    char bytes[CMSG_SPACE(kMostDescriptors * sizeof(int))];
};

}  // namespace

bool SendPacket(int socket, const Packet& packet) {
    std::string bytes;
    for (const std::string& word : packet.words) {
        bytes += word;
        bytes += '\0';
    }
    if (bytes.size() > kLargestPacket || packet.descriptors.size() > kMostDescriptors) {
        return false;
    }
    iovec part = {bytes.data(), bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    ControlRoom room = {};
    if (!packet.descriptors.empty()) {
        int numbers[kMostDescriptors] = {};
        std::size_t count = 0;
        for (const Descriptor& descriptor : packet.descriptors) {
            numbers[count++] = descriptor.Get();
        }
        message.msg_control = room.bytes;
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* const control = CMSG_FIRSTHDR(&message);
        control->cmsg_level = SOL_SOCKET;
        control->cmsg_type = SCM_RIGHTS;
        control->cmsg_len = CMSG_LEN(count * sizeof(int));
        std::memcpy(CMSG_DATA(control), numbers, count * sizeof(int));
    }
    ssize_t sent;
    do {
        sent = sendmsg(socket, &message, MSG_NOSIGNAL);
    } while (sent == -1 && errno == EINTR);
    return sent == static_cast<ssize_t>(bytes.size());
}

std::optional<Packet> ReceivePacket(int socket) {
    std::string bytes(kLargestPacket, '\0');
    iovec part = {bytes.data(), bytes.size()};
    ControlRoom room = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = room.bytes;
    message.msg_controllen = sizeof room.bytes;
    ssize_t received;
    do {
        received = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    } while (received == -1 && errno == EINTR);
    if (received <= 0) {
        return std::nullopt;
    }
    Packet packet;
    for (cmsghdr* control = CMSG_FIRSTHDR(&message); control != nullptr;
         control = CMSG_NXTHDR(&message, control)) {
        if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_RIGHTS) {
            const std::size_t count = (control->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (std::size_t i = 0; i < count; ++i) {
                int number;
                std::memcpy(&number, CMSG_DATA(control) + i * sizeof(int), sizeof number);
                packet.descriptors.emplace_back(number);
            }
        }
    }
    bytes.resize(static_cast<std::size_t>(received));
    for (std::size_t start = 0; start < bytes.size();) {
        const std::size_t end = bytes.find('\0', start);
        packet.words.push_back(bytes.substr(start, end - start));
        start = end == std::string::npos ? bytes.size() : end + 1;
    }
    return packet;
}
