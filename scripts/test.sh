#!/usr/bin/env bash
# Builds everything three times and runs all tests of each build: the people's own build in build/, with the measurements
# and the load test; below it one with AddressSanitizer, UndefinedBehaviorSanitizer and the fuzz targets, and one with
# ThreadSanitizer. Passes its arguments to ctest.
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
scripts/setup.sh test
export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja} # of a new folder; one that is there keeps its own

jobs=$(nproc)
build() { # FOLDER CMAKE-OPTION...
  local folder=$1
  shift
  echo "test: building $folder"
  mkdir -p "$folder"
  { cmake -S . -B "$folder" "$@" && cmake --build "$folder" -j "$jobs"; } > "$folder/build.log" 2>&1 ||
    { tail -n 40 "$folder/build.log"; exit 1; }
}
mkdir -p build/all
exec 9> build/lock
flock -n 9 || { echo "test: another test or demo of this checkout is running" >&2; exit 1; }
# The rules of accessibility that the test of the page checks. Without a network it goes on without them.
if ! cmp -s tests/npm/package-lock.json build/npm/package-lock.json || [ ! -d build/npm/node_modules ]; then
  echo "test: fetching build/npm"
  mkdir -p build/npm
  cp tests/npm/package*.json build/npm
  npm ci --prefix build/npm --ignore-scripts --no-audit --no-fund > build/npm.log 2>&1 || tail -n 3 build/npm.log
fi
build build
cmake --build build -j "$jobs" --target dmd_bench soak > build/bench.log 2>&1 || { tail -n 40 build/bench.log; exit 1; }
build build/address -DCMAKE_CXX_COMPILER=clang++ -DDMD_SANITIZE=address -DDMD_FUZZ=ON
build build/thread -DCMAKE_CXX_COMPILER=clang++ -DDMD_SANITIZE=thread

# One run over all three builds, so that one summary counts every test.
printf 'subdirs(".." "../address" "../thread")\n' > build/all/CTestTestfile.cmake
exec ctest --no-tests=error --test-dir build/all -j "$jobs" --output-on-failure "$@"
