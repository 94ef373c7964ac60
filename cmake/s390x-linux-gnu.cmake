# For a 64-bit big-endian machine, whose programs qemu runs. scripts/test-big-endian sets TESSEL_SYSROOT: a folder with the
# libraries of that machine, which are not the compiler's own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)

set(sysroot $ENV{TESSEL_SYSROOT})
set(libraries ${sysroot}/usr/lib/s390x-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${libraries}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${sysroot})
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${libraries} -Wl,-rpath-link,${sysroot}/lib/s390x-linux-gnu")
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-s390x -L /usr/s390x-linux-gnu -E LD_LIBRARY_PATH=${libraries}:${sysroot}/lib/s390x-linux-gnu)
