#!/usr/bin/env bash
# Puts the daemon under load: all its clients report errors at once, on a debug build and on a commercial build, each in
# a phone of its own. Every report must arrive once and whole. Descriptors, memory and archives must stay bounded.
# Arguments: the reports on a debug build, those on a commercial build, and the seconds for each.
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
scripts/setup.sh

debug_reports=${1:-10000} commercial_reports=${2:-100000} limit=${3:-700}
mkdir -p build
echo "soak: building build/release"
{ cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release &&
  cmake --build build/release -j "$(nproc)" --target dmd phone soak; } > build/release.log 2>&1 || { tail -40 build/release.log; exit 1; }
build/release/phone run -- build/release/soak --reports "$debug_reports" --seconds "$limit"
build/release/phone run -- build/release/soak --reports "$commercial_reports" --seconds "$limit" --commercial
echo "soak: all checks passed"
