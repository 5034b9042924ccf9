#!/usr/bin/env bash
# Installs what is missing, builds scopemount and runs the program:
#   scripts/demo.sh [scopemount arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build
cmake -S . -B build -G Ninja -DSCOPEMOUNT_BUILD_TESTS=OFF >/dev/null
cmake --build build --target scopemount_cli
exec build/tools/scopemount/scopemount "$@"
