#!/usr/bin/env bash
# Installs the Debian packages that are missing for building, for the emulated phone and for the demo. If it may not, it
# says in one line what to install. If nothing is missing, it says nothing. The argument "test", "arm" or "bench" adds
# the packages that test.sh, test-arm.sh or bench.sh needs.
set -u
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
purpose=${1:-}
case $purpose in
  '' | test | arm | bench) ;;
  *) echo "setup: '$purpose' is no purpose: test, arm or bench, or none" >&2; exit 1 ;;
esac

have() { command -v "$1" > /dev/null 2>&1; }
header() { echo "#include <$1>" | ${CXX:-c++} -std=c++17 -E -x c++ ${2:-} - > /dev/null 2>&1; }
clang_links() { # SANITIZER: whether clang can link its runtime
  mkdir -p build && echo 'int main(){}' | clang++ -x c++ -fsanitize="$1" -o build/probe - > /dev/null 2>&1
}

missing=()
need() { # PACKAGE PROBE...: the package is missing if the probe fails
  local package=$1
  shift
  "$@" || missing+=("$package")
}

find_missing() {
  missing=()
  need g++ have "${CXX:-c++}"
  need cmake have cmake
  need ninja-build have ninja
  need pkg-config have pkg-config
  need libfuse3-dev pkg-config --exists fuse3
  need libgtest-dev header gtest/gtest.h
  need libcli11-dev header CLI/CLI.hpp
  need nlohmann-json3-dev header nlohmann/json.hpp
  need libarchive-dev pkg-config --exists libarchive
  need libsqlite3-dev pkg-config --exists sqlite3
  need zlib1g-dev header zlib.h
  need tar have tar
  need gzip have gzip
  if [ "$purpose" = test ]; then
    need clang have clang++
    need libclang-rt-dev clang_links address
    need libarchive-tools have bsdtar
    need procps have pgrep
    need util-linux have setarch
    need dpkg have dpkg-deb
    need dpkg-dev have dpkg-shlibdeps
    need file have file
    need bsdutils have script
    need mandoc have mandoc
    need python3 have python3
    need chromium have chromium
    need chromium-driver have chromedriver
    need npm have npm
    need make have make
    need m4 have m4
    need checkpolicy have checkpolicy
    need mini-soong have mini-soong
    need android-liblog-dev test -f /usr/include/android/android/log.h
    need android-libcutils-dev test -f /usr/include/android/cutils/properties.h
  fi
  if [ "$purpose" = arm ]; then
    need g++-arm-linux-gnueabihf have arm-linux-gnueabihf-g++
    need qemu-system-arm have qemu-system-arm
    need cpio have cpio
  fi
  if [ "$purpose" = bench ]; then
    need libarchive-tools have bsdtar
    need diffutils have diff
    need python3 have python3
  fi
}

find_missing 2> /dev/null
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo -n)
fi
if have apt-get && { [ ${#as_root[@]} -eq 0 ] || sudo -n true 2> /dev/null; }; then
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  { "${as_root[@]}" apt-get update -qq && "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"; } > /dev/null
  find_missing 2> /dev/null
  [ ${#missing[@]} -eq 0 ] && exit 0
fi
echo "setup: please install, as root: apt-get install ${missing[*]}" >&2
exit 1
