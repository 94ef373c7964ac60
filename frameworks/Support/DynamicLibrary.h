// A shared library that is loaded when it is needed for the first time, so that programs which
// never need it neither load it nor fail to start without it.
//
// Owner: whoever opens it; it stays loaded for as long as the process lives, because a library may
// have left pointers to itself behind. Threads: any. Failure: a library that is not there is not
// loaded, and then no function is found.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

namespace frameworks {

class DynamicLibrary {
  public:
    // FILE is a name with its version, such as "libsystemd.so.0".
    explicit DynamicLibrary(const char* file);
    DynamicLibrary(const DynamicLibrary&) = delete;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete;

    bool IsLoaded() const { return handle != nullptr; }

    // Sets FUNCTION to the function called NAME, or to null. True when there is one.
    template <typename Function>
    bool Find(const char* name, Function*& function) const {
        function = reinterpret_cast<Function*>(Symbol(name));
        return function != nullptr;
    }

  private:
    void* Symbol(const char* name) const;

    void* handle;
};

// The functions of a library, found when they are first asked for; null where there are none. FIND
// fills in what it finds, and says whether that is enough. A library that could not be loaded may
// only have lacked memory or descriptors, so it is tried anew the next time.
template <typename Functions>
const Functions* FunctionsOf(bool (*find)(Functions& functions)) {
    static std::mutex& mutex = *new std::mutex();
    static std::atomic<const Functions*> found{nullptr};
    if (const Functions* const ready = found) {
        return ready;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (found == nullptr) {
        auto tried = std::make_unique<Functions>();
        if (find(*tried)) {
            found = tried.release();
        }
    }
    return found;
}

}  // namespace frameworks
