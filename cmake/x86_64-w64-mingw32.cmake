# Cross build for 64-bit Windows with Debian's mingw-w64 compilers, in their
# POSIX-threads flavour (std::thread and std::mutex need winpthreads):
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/x86_64-w64-mingw32.cmake \
#         -DSCOPEMOUNT_BUILD_TOOLS=OFF
# The product is scopemount.dll. Programs run under wine64 (ctest uses it).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(SCOPEMOUNT_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${SCOPEMOUNT_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${SCOPEMOUNT_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${SCOPEMOUNT_MINGW_TRIPLE}-windres)

# Programs carry their runtime too, so wine finds nothing missing.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

find_program(SCOPEMOUNT_WINE64 NAMES wine64 PATHS /usr/lib/wine NO_DEFAULT_PATH)
if(NOT SCOPEMOUNT_WINE64)
  find_program(SCOPEMOUNT_WINE64 NAMES wine64 wine)
endif()
if(SCOPEMOUNT_WINE64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${SCOPEMOUNT_WINE64})
endif()

set(CMAKE_FIND_ROOT_PATH /usr/${SCOPEMOUNT_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
