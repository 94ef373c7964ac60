#include "Support/DynamicLibrary.h"

#include <dlfcn.h>

namespace frameworks {

// cppcheck-suppress noDestructor ; the library stays loaded for as long as the process lives
DynamicLibrary::DynamicLibrary(const char* file) : handle(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {}

void* DynamicLibrary::Symbol(const char* name) const {
    return handle == nullptr ? nullptr : dlsym(handle, name);
}

}  // namespace frameworks
