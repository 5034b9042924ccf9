#!/usr/bin/env bash
# The soft-float 32-bit ARM stage: cross-builds the library, the
# command-line program (with ERFA from Debian's armel architecture), the
# test programs and the soft-float call counter for ARMv5TE without a
# floating-point unit, checks that the library holds no hardware floating
# point, counts its software double helper calls against minimal versions,
# and runs the suite under user-mode emulation.
#   scripts/check-arm.sh [build-directory]   (default: build-check/arm)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build arm

root=${1:-build-check/arm}
toolchain=$PWD/cmake/arm-linux-gnueabi.cmake
triple=arm-linux-gnueabi
. scripts/cross-stage.sh

echo "=== library, command-line program, test programs, call counter ==="
# Everything this configuration builds is run below; nothing else is built.
cmake -S . -B "$root/build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" "${launcher[@]}" \
  -DSCOPEMOUNT_BUILD_TOOLS=ON -DSCOPEMOUNT_BUILD_BENCH=ON -DGTest_DIR="$gtest_prefix/lib/cmake/GTest" >/dev/null
cmake --build "$root/build" -j "$jobs"
emulator=(qemu-arm -L "/usr/$triple")

echo "=== no hardware floating point ==="
library=$root/build/src/libscopemount.so
objects=$(find "$root/build/src/CMakeFiles/scopemount_objects.dir" -name '*.o')
# Build attributes: a hardware-float object declares its FP architecture or
# passes doubles in VFP registers.
if $triple-readelf -A "$library" $objects | grep -E 'Tag_FP_arch|Tag_ABI_VFP_args|Tag_Advanced_SIMD_arch'; then
  echo "check-arm: hardware floating-point build attributes in the library" >&2
  exit 1
fi
# Instructions: any VFP/NEON mnemonic (v-prefixed data processing, loads and
# stores, and the old f-prefixed system register moves).
vfp='^\s*[0-9a-f]+:\s+([0-9a-f]{8}|[0-9a-f]{4} [0-9a-f]{4})\s+(v[a-z]+|fmrx|fmxr|fmstat|fldm[a-z]*|fstm[a-z]*|fmdrr|fmrrd|fcpyd|faddd|fmuld|fdivd|fsqrtd|fcmpd|fsitod|ftosid)\b'
if $triple-objdump -d "$library" | grep -E "$vfp" | head -5 | grep .; then
  echo "check-arm: VFP/NEON instructions in the library" >&2
  exit 1
fi
echo "no VFP/NEON attributes or instructions"

echo "=== soft-float helper calls against minimal versions ==="
counter=$root/build/bench/soft_float_calls
# Every double helper and math function the library calls must be counted:
# the counter defines a wrapper for each symbol it wraps. (libm's
# floating-point environment functions, fe*, do no arithmetic.)
called=$($triple-nm -u "$root/build/src/libscopemount_static.a" | awk 'NF == 2 {print $2}' | sort -u)
math=$($triple-nm -D --defined-only "/usr/$triple/lib/libm.so.6" |
  awk '{sub("@.*", "", $3); if ($3 !~ /^fe/) print $3}')
needed=$({ grep -E '^__aeabi_(c?d[a-z]+|[a-z]*2d|d2[a-z]+)$' <<<"$called" || true
           grep -Fx -f <(echo "$math") <<<"$called" || true; } | sort -u)
wrapped=$($triple-nm "$counter" | sed -n 's/^[0-9a-f]* T __wrap_//p' | sort -u)
uncounted=$(comm -23 <(echo "$needed") <(echo "$wrapped"))
if [ -n "$uncounted" ]; then
  echo "check-arm: the library calls helpers the counter does not wrap:" $uncounted >&2
  exit 1
fi
# Exits with 1 when the library makes more than 1.1 times the minimal calls.
"${emulator[@]}" "$counter"

echo "=== test suite under qemu-arm ==="
# Test programs that start children (themselves, a consumer) start them
# through the emulator too.
export SCOPEMOUNT_TEST_LAUNCHER="${emulator[*]}"
# Emulation runs the code several times slower than the threaded tests'
# fast clocks assume of a real CPU; a program that fails is run once more
# (its output stays in the log), so only a failure that repeats fails the
# stage.
ctest --test-dir "$root/build" --output-on-failure -j "$jobs" --repeat until-pass:2
