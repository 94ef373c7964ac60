# For a 64-bit big-endian machine, whose programs qemu runs. scripts/test-big-endian makes the folder with the libraries of
# that machine that are not the compiler's own.
set(TESSEL_MACHINE s390x-linux-gnu)
get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build-s390x/sysroot ABSOLUTE)
set(libraries ${sysroot}/usr/lib/${TESSEL_MACHINE})
set(TESSEL_EMULATED_LOADER ld64.so.1)
include(${CMAKE_CURRENT_LIST_DIR}/emulated.cmake)
set(ENV{PKG_CONFIG_LIBDIR} ${libraries}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${sysroot})
