#!/usr/bin/env bash
# CI stage: the Python package over the shared library: its tests with
# pytest (the simulators end to end, the README's example, an installed
# copy) and mypy --strict over the package.
#   scripts/check-python.sh [BUILD_DIR]   (default: builds build-check/plain)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build python

build=${1:-build-check/plain}
if [ ! -f "$build/src/libscopemount.so.0" ]; then
  cmake -S . -B "$build" -G Ninja -DSCOPEMOUNT_BUILD_TESTS=OFF -DSCOPEMOUNT_BUILD_TOOLS=OFF >/dev/null
  cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" --target scopemount
fi
build=$(cd "$build" && pwd)

# Debian's interpreter, where python3-pytest and mypy live (another python3
# may come first on PATH).
python=/usr/bin/python3
SCOPEMOUNT_LIBRARY="$build/src/libscopemount.so.0" SCOPEMOUNT_BUILD_DIR="$build" \
  "$python" -m pytest -q -p no:cacheprovider python/tests
"$python" -m mypy --strict --no-incremental python/scopemount python/examples
