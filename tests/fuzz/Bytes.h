// The input of a fuzzer, taken piece by piece from its front. Threads: one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

class Bytes {
  public:
    Bytes(const std::uint8_t* data, std::size_t size)
        : rest(reinterpret_cast<const char*>(data), size) {}

    bool AreAll() const { return rest.empty(); }
    // 0 when there is none.
    std::uint8_t TakeByte() {
        if (rest.empty()) return 0;
        const auto byte = static_cast<std::uint8_t>(rest.front());
        rest.remove_prefix(1);
        return byte;
    }
    // As many as there are, and no more than COUNT.
    std::string_view Take(std::size_t count) {
        const std::string_view taken = rest.substr(0, count);
        rest.remove_prefix(taken.size());
        return taken;
    }
    std::string_view TakeAll() { return Take(rest.size()); }

  private:
    std::string_view rest;
};
