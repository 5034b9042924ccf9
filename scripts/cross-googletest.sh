#!/usr/bin/env bash
# Builds GoogleTest from Debian's sources (package googletest) with a cross
# toolchain and installs it under ROOT/googletest-prefix, once per build
# directory: the cross stages' test programs link against it.
#   scripts/cross-googletest.sh TOOLCHAIN-FILE ROOT
set -euo pipefail
toolchain=$1
root=$2
prefix=$root/googletest-prefix
[ -f "$prefix/lib/cmake/GTest/GTestConfig.cmake" ] && exit 0
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S /usr/src/googletest -B "$root/googletest" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" "${launcher[@]}" >/dev/null
cmake --build "$root/googletest" -j "$(nproc 2>/dev/null || echo 2)"
cmake --install "$root/googletest" >/dev/null
