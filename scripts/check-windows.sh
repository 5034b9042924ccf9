#!/usr/bin/env bash
# The Windows stage: cross-builds scopemount.dll with mingw-w64 and runs
# under wine64 (headless: console programs need no display)
#  - the export-table check: exactly the ordinals, no names, system imports;
#  - a plain C host that binds every function by ordinal and drives both
#    simulators;
#  - the test programs that need no POSIX pseudo-terminals or child
#    processes (tests/windows/CMakeLists.txt lists what is left out, and why);
# and then compares, byte for byte, the result codes, alignment record and
# UTF-16 texts that host dumps with those of the same host built for Linux;
# last, the DLL drives each protocol's emulated controller (the Linux
# `scopemount emulate`) through a COM port that wine maps onto the
# emulator's pseudo-terminal.
#   scripts/check-windows.sh [build-directory]   (default: build-check/windows)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build windows

root=${1:-build-check/windows}
toolchain=$PWD/cmake/x86_64-w64-mingw32.cmake
. scripts/cross-stage.sh

# Debian keeps the 64-bit loader and the server out of PATH.
wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver)
export WINEPREFIX=$PWD/$root/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
mkdir -p "$root"
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  echo "=== wine prefix ==="
  "$wine" wineboot -i >/dev/null 2>&1 || true
  "$wineserver" -w  # the registry is written when the server ends
  [ -f "$WINEPREFIX/system.reg" ] || { echo "check-windows: wineboot made no prefix" >&2; exit 1; }
fi

echo "=== scopemount.dll, its checks and the test programs under wine64 ==="
cmake -S . -B "$root/build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" "${launcher[@]}" \
  -DCMAKE_BUILD_TYPE=Release -DSCOPEMOUNT_BUILD_TOOLS=OFF \
  -DGTest_DIR="$gtest_prefix/lib/cmake/GTest" >/dev/null
cmake --build "$root/build" -j "$jobs"
ctest --test-dir "$root/build" --output-on-failure -j "$jobs"

echo "=== the same host on Linux: byte identity ==="
cmake -S . -B "$root/linux" -G Ninja "${launcher[@]}" -DSCOPEMOUNT_BUILD_TESTS=OFF >/dev/null
cmake --build "$root/linux" -j "$jobs" --target scopemount scopemount_cli
cc -std=c99 -Wall -Wextra -Werror -pedantic -Iinclude tests/windows/ordinal_host.c \
  -o "$root/linux/ordinal_host" -ldl -lm
"$root/linux/ordinal_host" "$root/linux/src/libscopemount.so" "$root/linux/linux_dump.bin" >/dev/null
windows_dump=$root/build/tests/windows/windows_dump.bin
if ! cmp "$root/linux/linux_dump.bin" "$windows_dump"; then
  echo "check-windows: the Windows and Linux builds differ in codes, record or texts" >&2
  exit 1
fi
echo "codes, alignment record and texts: $(stat -c %s "$windows_dump") bytes, identical"

echo "=== serial under wine: COM ports onto the emulators' pseudo-terminals ==="
# The emulators serve until their input ends: they read a FIFO this script
# holds open, and are stopped by their process ids.
fifo=$root/emulators.fifo
rm -f "$fifo" && mkfifo "$fifo"
exec 3<>"$fifo"
emulators=()
stop_emulators() {
  # The wine server first: it ends by itself once its programs have, and a
  # pseudo-terminal it still held would hang up under it.
  "$wineserver" -w || true
  for pid in "${emulators[@]}"; do kill "$pid" 2>/dev/null || true; done
  exec 3>&-
  rm -f "$fifo"
}
trap stop_emulators EXIT
# protocol, model, COM port (12 checks the \\.\COMn names from 10 on).
for line in "motorcontroller 3 5" "auxbus 0 12" "compact 8 7"; do
  read -r protocol model port <<<"$line"
  out=$root/emulate-$protocol.out
  "$root/linux/tools/scopemount/scopemount" emulate "$protocol" <"$fifo" >"$out" 2>/dev/null &
  emulators+=($!)
  for _ in $(seq 100); do [ -s "$out" ] && break; sleep 0.05; done
  pty=$(head -1 "$out")
  [ -c "$pty" ] || { echo "check-windows: no pseudo-terminal from emulate $protocol" >&2; exit 1; }
  ln -sfn "$pty" "$WINEPREFIX/dosdevices/com$port"
  echo "--- $protocol controller, model $model, COM$port -> $pty"
  "$wine" "$root/build/tests/windows/ordinal_host.exe" scopemount.dll --serial "$port" "$model"
done
