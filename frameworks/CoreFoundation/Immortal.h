// For the objects that are there from the first instruction to the last: kCFBooleanTrue,
// kCFRunLoopDefaultMode, ...
//
// An Immortal<T> at namespace scope is built by the compiler (T's constructor is constexpr), so it
// can be used by code that runs before main, and its T is never destroyed, so it can be used by
// code that runs after main. T's constructor takes Lifetime::kImmortal first: CFRetain and
// CFRelease leave such an object alone.
#pragma once

#include <utility>

#include "CoreFoundation/Object.h"

namespace frameworks {

template <typename T>
class Immortal {
  public:
    template <typename... Arguments>
    constexpr explicit Immortal(Arguments&&... arguments) noexcept
        : object(Lifetime::kImmortal, std::forward<Arguments>(arguments)...) {}
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;
    // A member of a union is not destroyed with it.
    ~Immortal() {}

    constexpr T* Get() noexcept { return &object; }

  private:
    union {
        T object;
    };
};

}  // namespace frameworks
