// What the tests and their helper inside the sandbox say to each other: words and descriptors over
// a SOCK_SEQPACKET socket, one packet a message. Words hold no NUL. A packet carries at most
// kMostDescriptors descriptors.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/Descriptor.h"

struct Packet {
    std::vector<std::string> words;
    std::vector<Descriptor> descriptors;
};

constexpr std::size_t kMostDescriptors = 3;

// False when the other side is gone or the packet is too long.
bool SendPacket(int socket, const Packet& packet);

// Nothing when the other side is gone.
std::optional<Packet> ReceivePacket(int socket);
