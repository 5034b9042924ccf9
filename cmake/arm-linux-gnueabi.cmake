# Cross build for 32-bit ARM without a floating-point unit: Debian's armel
# compilers (ARMv5TE, soft-float ABI), so every double operation is a call
# into the compiler's software helpers, as on the device.
#   cmake -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabi.cmake
# Test programs run under user-mode emulation (ctest uses the emulator).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(SCOPEMOUNT_ARM_TRIPLE arm-linux-gnueabi)
set(SCOPEMOUNT_ARM_SYSROOT /usr/${SCOPEMOUNT_ARM_TRIPLE})

set(CMAKE_C_COMPILER ${SCOPEMOUNT_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${SCOPEMOUNT_ARM_TRIPLE}-g++)

# Spelled out rather than left to the compiler's defaults, so a compiler
# configured for another ARM flavour still builds for the device.
# -Wno-psabi: the notes that GCC 7.1 changed how some arguments are passed
# concern linking with objects built before it, which never happens here.
set(SCOPEMOUNT_ARM_FLAGS "-march=armv5te -marm -mfloat-abi=soft -Wno-psabi")
set(CMAKE_C_FLAGS_INIT "${SCOPEMOUNT_ARM_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${SCOPEMOUNT_ARM_FLAGS}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${SCOPEMOUNT_ARM_SYSROOT})
# Under emulation the dynamic loader is the sysroot's. Once a package of the
# armel architecture is installed (ERFA), the host's loader cache also lists
# the host's own armel C library, of another build than that loader, which
# crashes the program on its first thread. Programs and libraries built here
# search the sysroot first (the build tree only; installing drops it).
set(CMAKE_BUILD_RPATH ${SCOPEMOUNT_ARM_SYSROOT}/lib)

# Libraries and headers come from the target's tree only; programs (cmake,
# pkg-config) from the host. Packages may also come from prefixes given on
# the command line (GoogleTest built for the target). Debian packages of the
# target's architecture (armel: ERFA) install into the host tree's
# multiarch directories, and header-only ones (CLI11) into its shared
# directories, so the host root is searched too, through those only.
set(CMAKE_LIBRARY_ARCHITECTURE ${SCOPEMOUNT_ARM_TRIPLE})
list(APPEND CMAKE_FIND_ROOT_PATH ${SCOPEMOUNT_ARM_SYSROOT} /)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${SCOPEMOUNT_ARM_TRIPLE}/pkgconfig:/usr/share/pkgconfig)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
