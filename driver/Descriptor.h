// Owns a descriptor: closes it when it goes. Move-only.
#pragma once

#include <unistd.h>

#include <utility>

namespace driver {

class Descriptor {
  public:
    Descriptor() = default;
    // Takes over NUMBER; -1 is none, so the result of a call that failed can be handed in as it is.
    explicit Descriptor(int itsNumber) : number(itsNumber) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor() {
        if (number != -1) {
            close(number);
        }
    }

    int Get() const { return number; }
    bool IsOpen() const { return number != -1; }

  private:
    int number = -1;
};

}  // namespace driver
