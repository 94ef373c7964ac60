#include "CoreFoundation/PropertyListExact.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace frameworks {
namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr char kWholeOfEight = 0x13;
constexpr char kWholeOfSixteen = 0x14;
constexpr char kDate = 0x33;
constexpr std::size_t kWidth = 8;

struct Free {
    void operator()(char* block) const { std::free(block); }
};

std::string BigEndian(std::uint64_t value) {
    std::string bytes;
    for (std::size_t shift = 8 * kWidth; shift > 0; shift -= 8) {
        bytes += static_cast<char>(value >> (shift - 8) & 0xFF);
    }
    return bytes;
}

// The first object of the binary form of NODE alone, and what follows it.
std::string ObjectOf(const PropertyListLibrary& library, PropertyListLibrary::Node node) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    library.toBinary(node, &bytes, &length);
    const std::unique_ptr<char, Free> owner(bytes);
    if (bytes == nullptr || length < kMagic.size()) return std::string();
    return std::string(bytes + kMagic.size(), length - kMagic.size());
}

// A list of OBJECT, which names no other, and nothing else.
OwnedNode NodeOf(const PropertyListLibrary& library, const std::string& object) {
    const std::string list = std::string(kMagic) + object +
                             // The table: one offset, of one byte.
                             static_cast<char>(kMagic.size()) +
                             // The trailer: the width of offsets and of references, how many
                             // objects, the first one, where the table is.
                             std::string(6, '\0') + '\1' + '\1' + BigEndian(1) + BigEndian(0) +
                             BigEndian(kMagic.size() + object.size());
    PropertyListLibrary::Node node = nullptr;
    library.fromBinary(list.data(), static_cast<std::uint32_t>(list.size()), &node);
    return OwnedNode(node, FreeNode{&library});
}

}  // namespace

std::optional<double> SecondsOfDate(const PropertyListLibrary& library,
                                    PropertyListLibrary::Node date) {
    const std::string object = ObjectOf(library, date);
    if (object.size() <= kWidth || object.front() != kDate) return std::nullopt;
    std::uint64_t bits = 0;
    for (std::size_t position = 1; position <= kWidth; ++position) {
        bits = bits << 8 | static_cast<unsigned char>(object[position]);
    }
    double seconds = 0;
    std::memcpy(&seconds, &bits, sizeof seconds);
    return seconds;
}

bool IsLargeNumber(const PropertyListLibrary& library, PropertyListLibrary::Node number) {
    const std::string object = ObjectOf(library, number);
    return !object.empty() && object.front() == kWholeOfSixteen;
}

OwnedNode MakeDate(const PropertyListLibrary& library, double seconds) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &seconds, sizeof bits);
    return NodeOf(library, kDate + BigEndian(bits));
}

OwnedNode MakeNegativeNumber(const PropertyListLibrary& library, std::int64_t value) {
    return NodeOf(library, kWholeOfEight + BigEndian(static_cast<std::uint64_t>(value)));
}

OwnedNode MakeLargeNumber(const PropertyListLibrary& library, std::uint64_t value) {
    return NodeOf(library, kWholeOfSixteen + BigEndian(0) + BigEndian(value));
}

}  // namespace frameworks
