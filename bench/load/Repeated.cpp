#include "load/Repeated.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kStretch = 16384;

}  // namespace

Repeated::Repeated(const std::string& text) : period(text.size()) {
    while (period > 0 && stretch.size() < kStretch + period) {
        stretch += text;
    }
}

bool Repeated::Matches(std::size_t offset, const char* bytes, std::size_t length) const {
    if (period == 0) {
        return true;
    }
    while (length > 0) {
        const std::size_t phase = offset % period;
        const std::size_t part = std::min(length, stretch.size() - phase);
        if (std::memcmp(stretch.data() + phase, bytes, part) != 0) {
            return false;
        }
        offset += part;
        bytes += part;
        length -= part;
    }
    return true;
}
