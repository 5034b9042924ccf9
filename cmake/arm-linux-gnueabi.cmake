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
set(SCOPEMOUNT_ARM_FLAGS "-march=armv5te -marm -mfloat-abi=soft")
set(CMAKE_C_FLAGS_INIT "${SCOPEMOUNT_ARM_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${SCOPEMOUNT_ARM_FLAGS}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${SCOPEMOUNT_ARM_SYSROOT})

# Libraries and headers come from the target's tree only; programs (cmake,
# pkg-config) from the host. Packages may also come from prefixes given on
# the command line (GoogleTest built for the target).
list(APPEND CMAKE_FIND_ROOT_PATH ${SCOPEMOUNT_ARM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
