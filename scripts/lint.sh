#!/usr/bin/env bash
# Checks the format of every source and the direction of every include, and runs clang-tidy over all sources but the
# tests. It needs clang-format, clang-tidy, and a configured build in build/address, which scripts/test.sh makes.
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

# Every include points down or stays in its folder. The folders stand from bottom to top. The rules after them are the
# exceptions.
git grep -E '^ *# *include "' -- '*.cpp' '*.h' ':!tests' ':!bench' | awk -F '[:"]' '
  BEGIN {
    split("platform tar output config clients actions servers triggers daemon driver_check desk tools", order, " ")
    for (i in order) height[order[i]] = i + 0
    height["emulator"] = height["platform"]
  }
  { from = $1; sub("/.*", "", from); to = $3; sub("/.*", "", to) }
  from == to || (to in height && height[to] < height[from]) { next }
  $3 == "daemon/product_version.h" { next }
  $1 == "clients/client_table.cpp" && to == "actions" { next }
  from == "emulator" && (to == "desk" || to == "platform" || $3 == "triggers/command_message.h") { next }
  { print "lint: " $1 " includes " $3 ", which is above it"; bad = 1 }
  END { exit bad }'

# One file at a time, so that what clang-tidy says about a file does not depend on the file before it.
git ls-files '*.cpp' | grep -v '^tests/' |
  xargs -P "$(nproc)" -n 1 clang-tidy -p build/address --quiet
