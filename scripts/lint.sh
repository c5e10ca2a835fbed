#!/usr/bin/env bash
# Checks the format of every source and runs clang-tidy over the daemon's, the emulator's and the tools'. Needs
# clang-format and clang-tidy, and a configured build in build/address (scripts/test.sh makes one).
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
# One file at a time: what clang-tidy says of a file must not depend on the one before it.
git ls-files '*.cpp' | grep -v '^tests/' |
  xargs -P "$(nproc)" -n 1 clang-tidy -p build/address --quiet
