#!/usr/bin/env bash
# Puts the daemon under load: all its clients report errors at once, on a debug build and on a commercial build, each in
# a phone of its own. Every report must arrive once and whole. Descriptors, memory and archives must stay bounded.
# Arguments: the reports on a debug build, those on a commercial build, and the seconds for each.
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
scripts/setup.sh

debug_reports=${1:-10000} commercial_reports=${2:-100000} limit=${3:-700}
mkdir -p build
echo "soak: building build/soak"
{ cmake -S . -B build/soak -G Ninja -DCMAKE_BUILD_TYPE=Release &&
  cmake --build build/soak -j "$(nproc)" --target dmd phone soak; } > build/soak.log 2>&1 || { tail -40 build/soak.log; exit 1; }
build/soak/phone run -- build/soak/soak --reports "$debug_reports" --seconds "$limit"
build/soak/phone run -- build/soak/soak --reports "$commercial_reports" --seconds "$limit" --commercial
echo "soak: all checks passed"
