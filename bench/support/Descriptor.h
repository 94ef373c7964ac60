// Owns a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : number(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, kNone)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor() {
        if (number != kNone) {
            close(number);
        }
    }

    int Get() const { return number; }
    bool IsOpen() const { return number >= 0; }

  private:
    static constexpr int kNone = -1;
    int number = kNone;
};
