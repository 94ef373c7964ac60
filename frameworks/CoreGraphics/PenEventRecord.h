// What passes between a process that posts pen events and those who tap it: the contract of the
// two, which other programs may speak as well.
//
// The poster listens on an abstract Unix socket of type SOCK_SEQPACKET, whose name is
// "CGEventTap." and its process id, in decimal. Whoever connects is a tap and gets one packet per
// event: the record below, in the machine's byte order. A tap sends nothing; it ends by closing.
// Packets of another size or version are to be dropped, so that both can grow.
//
// This header stands on its own, for both sides.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace penEvents {

constexpr std::uint32_t kVersion = 1;

enum Type : std::uint32_t { kDown = 1, kUp = 2, kDragged = 6, kPointer = 23, kProximity = 24 };
enum PointerType : std::int64_t { kPen = 1, kCursor = 2, kEraser = 3 };

struct Record {
    std::uint32_t version;
    // A Type.
    std::uint32_t type;
    // In pixels of the screen, from the top left corner.
    double x;
    double y;
    // 0 to 1.
    double pressure;
    // A PointerType.
    std::int64_t pointerType;
    // Whether the tool is near: 1, or 0.
    std::int64_t enterProximity;
};
static_assert(sizeof(Record) == 48 && offsetof(Record, x) == 8 &&
                  offsetof(Record, pressure) == 24 && offsetof(Record, enterProximity) == 40,
              "a record has no gaps, and its size and places are fixed");

struct Address {
    sockaddr_un name;
    socklen_t length;
};

// Where the process POSTER listens. An abstract name has no file, and ends with its length.
inline Address AddressOf(pid_t poster) {
    Address address{};
    address.name.sun_family = AF_UNIX;
    const int written = std::snprintf(address.name.sun_path + 1, sizeof address.name.sun_path - 1,
                                      "CGEventTap.%d", static_cast<int>(poster));
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1) +
                     static_cast<socklen_t>(written);
    return address;
}

}  // namespace penEvents
