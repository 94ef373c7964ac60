// Begins to count what is run through, in the build for coverage only.
//
// The counters of every process of a program are one file that all of them have mapped, so that
// nothing has to be written at the end: a process that is killed or ends by _exit has been counted
// like any other. The file may be made by root and then be mapped by a user, which is why the mode
// mask does not count for it; so this stands in for the runtime's own beginning.
#include <sys/stat.h>

extern "C" {

// The linker asks for this name; the runtime's object of the same name, which begins by itself, is
// then not linked.
extern int __llvm_profile_runtime;
int __llvm_profile_runtime = 0;

void __llvm_profile_initialize();

}  // extern "C"

namespace {

__attribute__((constructor(101))) void Begin() {
    const mode_t kept = umask(0);
    __llvm_profile_initialize();
    umask(kept);
}

}  // namespace
