// A shared library that is loaded when it is needed for the first time, so that programs which
// never need it neither load it nor fail to start without it.
//
// Owner: whoever opens it; it stays loaded for as long as the process lives, because a library may
// have left pointers to itself behind. Threads: any. Failure: a library that is not there is not
// loaded, and then no function is found.
#pragma once

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

}  // namespace frameworks
