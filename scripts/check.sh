#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the whole test suite
# twice (a plain build, then AddressSanitizer + UndefinedBehaviorSanitizer),
# and the threaded tests a third time under ThreadSanitizer; then the extra
# stages (Python, fuzzing, the soft-float ARM build under emulation).
set -euo pipefail
cd "$(dirname "$0")/.."
# Everything every stage needs, in one package-index update; the stage
# scripts then find nothing missing.
scripts/install-deps.sh build test python fuzz arm windows

jobs=$(nproc 2>/dev/null || echo 2)

configure_and_build() {  # directory, target, cmake options...
  local dir=build-check/$1 target=$2
  shift 2
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs" --target "$target"
}

echo "=== plain build ==="
configure_and_build plain all
ctest --test-dir build-check/plain --output-on-failure -j "$jobs"

echo "=== AddressSanitizer + UndefinedBehaviorSanitizer ==="
configure_and_build asan-ubsan all -DSCOPEMOUNT_SANITIZE=address,undefined
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-check/asan-ubsan --output-on-failure -j "$jobs"

echo "=== ThreadSanitizer (threaded tests) ==="
configure_and_build tsan scopemount_threaded_tests -DSCOPEMOUNT_SANITIZE=thread \
  -DSCOPEMOUNT_BUILD_TOOLS=OFF
# ThreadSanitizer needs a memory layout that strong address randomisation
# can break; run it without randomisation where the kernel allows that.
launcher=()
if setarch "$(uname -m)" -R true 2>/dev/null; then launcher=(setarch "$(uname -m)" -R); fi
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  "${launcher[@]}" ctest --test-dir build-check/tsan --output-on-failure -j "$jobs" -L threaded

echo "=== Python package ==="
scripts/check-python.sh build-check/plain

echo "=== libFuzzer targets ==="
scripts/check-fuzz.sh

echo "=== soft-float 32-bit ARM under qemu-arm ==="
scripts/check-arm.sh

echo "=== Windows DLL under wine64 ==="
scripts/check-windows.sh

echo "=== all suites passed ==="
