# What the toolchain files of emulated machines share: the caller has set TESSEL_MACHINE, TESSEL_EMULATED_LOADER, sysroot and
# libraries.
#
# A program finds its loader and its libraries by what stands in itself, not by the environment: tests start programs with an
# environment of their own. In the sandbox of the end-to-end tests the libraries lie in another place.
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${TESSEL_MACHINE})
set(CMAKE_C_COMPILER ${TESSEL_MACHINE}-gcc)
set(CMAKE_CXX_COMPILER ${TESSEL_MACHINE}-g++)

set(CMAKE_FIND_ROOT_PATH ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(TESSEL_LIBRARIES ${libraries})
set(TESSEL_LIBRARIES_IN_SANDBOX /libraries)
set(of_the_compiler /usr/${TESSEL_MACHINE}/lib)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--dynamic-linker=${of_the_compiler}/${TESSEL_EMULATED_LOADER} -Wl,--disable-new-dtags \
-Wl,-rpath,${of_the_compiler}:${libraries}:${TESSEL_LIBRARIES_IN_SANDBOX} -Wl,-rpath-link,${libraries}")
