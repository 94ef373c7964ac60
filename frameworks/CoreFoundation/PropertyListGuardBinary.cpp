#include <algorithm>
#include <cstdint>
#include <vector>

#include "CoreFoundation/PropertyList.h"
#include "CoreFoundation/PropertyListGuard.h"

namespace frameworks {
namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
// Where things stand in the trailer.
constexpr std::size_t kOffsetSizeAt = 6;
constexpr std::size_t kReferenceSizeAt = 7;
constexpr std::size_t kObjectCountAt = 8;
constexpr std::size_t kFirstObjectAt = 16;
constexpr std::size_t kOffsetTableAt = 24;

// The upper half of an object's first byte says what it is.
enum class Kind : std::uint8_t {
    kSingleton = 0x0,
    kWhole = 0x1,
    kReal = 0x2,
    kDate = 0x3,
    kData = 0x4,
    kASCII = 0x5,
    kUnicode = 0x6,
    kArray = 0xA,
    kSet = 0xC,
    kDictionary = 0xD
};
// In the lower half of the first byte: the count follows as a number of its own.
constexpr std::uint64_t kCountFollows = 0xF;
// About what an object costs beside its contents.
constexpr std::size_t kCostOfObject = 64;

std::uint64_t BigEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (const char byte : bytes) {
        value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
}

// The library ends the program over a key that holds the character NUL, and cuts other texts off
// there.
bool HoldsNUL(std::string_view utf16) {
    for (std::size_t position = 0; position + 1 < utf16.size(); position += 2) {
        if (utf16[position] == '\0' && utf16[position + 1] == '\0') return true;
    }
    return false;
}

// Of a number of sixteen bytes only the lower eight are kept.
constexpr std::size_t kLongestWhole = 16;
bool FitsInHalf(std::string_view whole) {
    return BigEndian(whole.substr(0, kLongestWhole / 2)) == 0;
}

class Walk {
  public:
    explicit Walk(std::string_view itsBytes) : bytes(itsBytes) {}

    bool IsSound() { return ReadTrailer() && Visit(firstObject, 0); }

  private:
    struct Visited {
        // With all that it names; 0 before the object was visited.
        std::size_t cost = 0;
        // The containers from this object down, itself included.
        std::size_t height = 0;
        bool isOpen = false;
    };
    // What an object's first bytes say.
    struct Head {
        Kind kind;
        std::uint64_t count;
        // Where its contents begin.
        std::size_t start;
    };

    bool ReadTrailer() {
        if (bytes.size() < kMagic.size() + kTrailerSize) return false;
        const std::string_view trailer = bytes.substr(bytes.size() - kTrailerSize);
        offsetSize = static_cast<unsigned char>(trailer[kOffsetSizeAt]);
        referenceSize = static_cast<unsigned char>(trailer[kReferenceSizeAt]);
        const std::uint64_t count = BigEndian(trailer.substr(kObjectCountAt, 8));
        firstObject = BigEndian(trailer.substr(kFirstObjectAt, 8));
        const std::uint64_t table = BigEndian(trailer.substr(kOffsetTableAt, 8));
        const std::size_t end = bytes.size() - kTrailerSize;
        if (offsetSize == 0 || offsetSize > 8 || referenceSize == 0 || referenceSize > 8 ||
            table < kMagic.size() || table >= end || count > (end - table) / offsetSize) {
            return false;
        }
        offsetTable = static_cast<std::size_t>(table);
        visited.resize(static_cast<std::size_t>(count));
        return true;
    }

    // Everything but the table lies between the magic and the table.
    bool IsInside(std::size_t start, std::uint64_t size) const {
        return start <= offsetTable && size <= offsetTable - start;
    }

    std::optional<Head> HeadAt(std::uint64_t offset) const {
        if (offset < kMagic.size() || offset >= offsetTable) return std::nullopt;
        std::size_t start = static_cast<std::size_t>(offset);
        const auto first = static_cast<unsigned char>(bytes[start++]);
        Head head{static_cast<Kind>(first >> 4), first & 0xFu, 0};
        const bool isCounted = head.kind >= Kind::kData;
        if (isCounted && head.count == kCountFollows) {
            if (!IsInside(start, 1)) return std::nullopt;
            const auto width = static_cast<unsigned char>(bytes[start++]);
            if (width > 0x13 || width < 0x10) return std::nullopt;
            const std::size_t size = std::size_t{1} << (width & 0xF);
            if (!IsInside(start, size)) return std::nullopt;
            head.count = BigEndian(bytes.substr(start, size));
            start += size;
        }
        head.start = start;
        return head;
    }

    // What the object costs without those it names; nothing when it is malformed.
    std::optional<std::size_t> OwnCost(const Head& head) const {
        std::uint64_t size = 0;
        switch (head.kind) {
            case Kind::kSingleton:
                break;
            case Kind::kWhole:
                if (head.count > 4) return std::nullopt;
                size = std::uint64_t{1} << head.count;
                break;
            case Kind::kReal:
                if (head.count != 2 && head.count != 3) return std::nullopt;
                size = std::uint64_t{1} << head.count;
                break;
            case Kind::kDate:
                size = 8;
                break;
            case Kind::kData:
            case Kind::kASCII:
                size = head.count;
                break;
            case Kind::kUnicode:
                if (head.count > bytes.size()) return std::nullopt;
                size = head.count * 2;
                break;
            case Kind::kArray:
            case Kind::kSet:
                if (head.count > bytes.size()) return std::nullopt;
                size = head.count * referenceSize;
                break;
            case Kind::kDictionary:
                if (head.count > bytes.size()) return std::nullopt;
                size = head.count * 2 * referenceSize;
                break;
            default:
                return std::nullopt;
        }
        if (!IsInside(head.start, size)) return std::nullopt;
        const std::string_view content = bytes.substr(head.start, static_cast<std::size_t>(size));
        if (head.kind == Kind::kUnicode && HoldsNUL(content)) return std::nullopt;
        if (head.kind == Kind::kASCII && content.find('\0') != std::string_view::npos) {
            return std::nullopt;
        }
        if (head.kind == Kind::kWhole && size == kLongestWhole && !FitsInHalf(content)) {
            return std::nullopt;
        }
        return kCostOfObject + static_cast<std::size_t>(size);
    }

    static std::size_t NamedBy(const Head& head) {
        switch (head.kind) {
            case Kind::kArray:
            case Kind::kSet:
                return static_cast<std::size_t>(head.count);
            case Kind::kDictionary:
                return static_cast<std::size_t>(head.count) * 2;
            default:
                return 0;
        }
    }

    static bool IsContainer(const Head& head) {
        return head.kind == Kind::kArray || head.kind == Kind::kSet ||
               head.kind == Kind::kDictionary;
    }

    // OUTER is how many containers the object lies in.
    bool Visit(std::uint64_t object, std::size_t outer) {
        if (object >= visited.size()) return false;
        // The list does not grow.
        Visited& known = visited[static_cast<std::size_t>(object)];
        if (known.isOpen) return false;
        if (known.cost != 0) return outer + known.height <= kDeepestPropertyList;
        const std::optional<Head> head = HeadAt(OffsetOf(static_cast<std::size_t>(object)));
        if (!head) return false;
        const std::optional<std::size_t> own = OwnCost(*head);
        if (!own) return false;
        known.cost = *own;
        if (!IsContainer(*head)) return true;
        if (outer == kDeepestPropertyList) return false;
        known.isOpen = true;
        known.height = 1;
        for (std::size_t index = 0; index < NamedBy(*head); ++index) {
            const std::uint64_t named =
                BigEndian(bytes.substr(head->start + index * referenceSize, referenceSize));
            if (!Visit(named, outer + 1)) return false;
            const Visited& member = visited[static_cast<std::size_t>(named)];
            known.height = std::max(known.height, member.height + 1);
            known.cost += member.cost;
            if (known.cost > kLargestContents) return false;
        }
        known.isOpen = false;
        return true;
    }

    std::uint64_t OffsetOf(std::size_t object) const {
        return BigEndian(bytes.substr(offsetTable + object * offsetSize, offsetSize));
    }

    const std::string_view bytes;
    std::size_t offsetSize = 0;
    std::size_t referenceSize = 0;
    std::size_t offsetTable = 0;
    std::uint64_t firstObject = 0;
    std::vector<Visited> visited;
};

}  // namespace

bool IsBinaryPropertyList(std::string_view bytes) {
    return bytes.substr(0, kMagic.size()) == kMagic;
}

bool IsSoundBinaryPropertyList(std::string_view bytes) {
    return IsBinaryPropertyList(bytes) && Walk(bytes).IsSound();
}

}  // namespace frameworks
