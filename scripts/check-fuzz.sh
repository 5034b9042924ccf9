#!/usr/bin/env bash
# CI stage: builds the libFuzzer targets with clang and runs each for a few
# seconds, so every reader of outside bytes keeps building and its easy
# finds fail the run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build fuzz

jobs=$(nproc 2>/dev/null || echo 2)
dir=build-check/fuzz
CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DSCOPEMOUNT_BUILD_FUZZ=ON \
  -DSCOPEMOUNT_BUILD_TESTS=OFF -DSCOPEMOUNT_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j "$jobs" --target scopemount_fuzz_targets
ctest --test-dir "$dir" --output-on-failure -j "$jobs" -L fuzz
