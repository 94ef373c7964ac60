// Owns a descriptor: closes it when it goes. Move-only, like the ownership it stands for.
//
// Threads: one at a time. Failure: none; closing leaves errno as it was, so that an owner can go
// on the way out of a call that failed.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace frameworks {

class UniqueDescriptor {
  public:
    UniqueDescriptor() = default;
    // Takes over NUMBER; -1 is none, so the result of a call that failed can be handed in as it is.
    explicit UniqueDescriptor(int itsNumber) : number(itsNumber) {}
    UniqueDescriptor(UniqueDescriptor&& other) noexcept : number(other.Leak()) {}
    UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~UniqueDescriptor() { Close(); }

    int Get() const { return number; }
    bool IsOpen() const { return number != -1; }
    // Gives the descriptor up to the caller.
    int Leak() { return std::exchange(number, -1); }
    void Close() {
        if (number != -1) {
            const int before = errno;
            // Not tried again after EINTR: Linux has given the number back by then.
            close(std::exchange(number, -1));
            errno = before;
        }
    }

  private:
    int number = -1;
};

}  // namespace frameworks
