# For a 32-bit big-endian machine, whose programs qemu runs. There are no libraries for it but the compiler's own. What is
# written against others compiles all the same, because their headers are those of this machine, and what loads them when it
# needs them finds none; a program that asks libuuid for something dies (see the preset).
set(TESSEL_MACHINE powerpc-linux-gnu)
get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build-powerpc/sysroot ABSOLUTE)
set(libraries ${sysroot}/usr/lib)
set(TESSEL_EMULATED_LOADER ld.so.1)
include(${CMAKE_CURRENT_LIST_DIR}/emulated.cmake)
set(ENV{PKG_CONFIG_LIBDIR} ${libraries}/pkgconfig)
