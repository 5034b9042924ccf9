#!/usr/bin/env bash
# Installs the Debian packages a build needs, only those that are missing.
#   scripts/install-deps.sh [build|test|bench|fuzz|python|arm|windows]...   (default: build)
# "build" is the library and the command-line program, "test" adds the test
# frameworks, "bench" the benchmark library, "fuzz" clang with libFuzzer,
# "python" Debian's python3 with pytest and mypy, "arm" the soft-float ARM
# cross compilers, the emulator, GoogleTest's sources to build for it and
# ERFA for armel (a foreign architecture, added to dpkg when missing),
# "windows" the x86-64 mingw-w64 compilers (posix threads) and wine64.
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config binutils gettext libcli11-dev liberfa-dev libedit-dev
          libbluetooth-dev)
for need in "${@:-build}"; do
  case "$need" in
    build) ;;
    test) packages+=(libgtest-dev libgmock-dev) ;;
    bench) packages+=(libbenchmark-dev) ;;
    fuzz) packages+=(clang libclang-rt-14-dev) ;;
    python) packages+=(python3 python3-pytest mypy) ;;
    arm) packages+=(g++-arm-linux-gnueabi binutils-arm-linux-gnueabi qemu-user googletest
                    liberfa-dev:armel) ;;
    windows) packages+=(g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine64 googletest) ;;
    *) echo "install-deps: unknown set '$need' (build, test, bench, fuzz, python, arm or windows)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps: need root (or sudo) to install ${missing[*]}" >&2; exit 1; }
  sudo=sudo
fi
export DEBIAN_FRONTEND=noninteractive
# A package named name:arch needs its architecture known to dpkg before the
# one index update, so that the update fetches that architecture's lists.
for p in "${missing[@]}"; do
  arch=${p##*:}
  [ "$arch" = "$p" ] && continue
  [ "$arch" = "$(dpkg --print-architecture)" ] && continue
  dpkg --print-foreign-architectures | grep -qx "$arch" || $sudo dpkg --add-architecture "$arch"
done
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
