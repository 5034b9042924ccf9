# Sourced by the cross stages once they have set `toolchain` (a CMake
# toolchain file) and `root` (their build directory): the build's
# parallelism and compiler launcher, and GoogleTest built from Debian's
# sources (package googletest) with that toolchain, once per build
# directory, under $root/googletest-prefix (`gtest_prefix`), for the
# stage's test programs to link against.
jobs=$(nproc 2>/dev/null || echo 2)
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)

echo "=== GoogleTest for the target ==="
gtest_prefix=$PWD/$root/googletest-prefix
if [ ! -f "$gtest_prefix/lib/cmake/GTest/GTestConfig.cmake" ]; then
  cmake -S /usr/src/googletest -B "$PWD/$root/googletest" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$gtest_prefix" "${launcher[@]}" >/dev/null
  cmake --build "$PWD/$root/googletest" -j "$jobs"
  cmake --install "$PWD/$root/googletest" >/dev/null
fi
