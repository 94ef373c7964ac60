// A file descriptor that is closed when its owner goes. Move-only; -1 means none.
#pragma once

#include <unistd.h>

#include <utility>

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int owned) : number(owned) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    int Get() const { return number; }
    explicit operator bool() const { return number != -1; }
    void Close() {
        if (number != -1) {
            ::close(std::exchange(number, -1));
        }
    }

  private:
    int number = -1;
};
