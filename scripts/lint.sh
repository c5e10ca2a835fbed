#!/usr/bin/env bash
# Checks the format of every source and the direction of every include, and runs clang-tidy over the daemon's, the
# emulator's and the tools' sources. Needs clang-format and clang-tidy, and a configured build in build/address
# (scripts/test.sh makes one).
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

# Every include points down, or stays in its folder. Folders from bottom to top, then the exceptions: file, included.
git grep -E '^ *# *include "' -- '*.cpp' '*.h' ':!tests' ':!bench' | awk -F '[:"]' '
  BEGIN {
    split("platform tar output config clients actions servers triggers daemon tools", order, " ")
    for (i in order) height[order[i]] = i + 0
    height["emulator"] = height["platform"]
  }
  { from = $1; sub("/.*", "", from); to = $3; sub("/.*", "", to) }
  from == to || (to in height && height[to] < height[from]) { next }
  $3 == "daemon/product_version.h" { next }
  $1 == "clients/client_table.cpp" && to == "actions" { next }
  from == "emulator" && (to == "platform" || $3 == "triggers/command_message.h") { next }
  { print "lint: " $1 " includes " $3 ", which is above it"; bad = 1 }
  END { exit bad }'

# One file at a time: what clang-tidy says of a file must not depend on the one before it.
git ls-files '*.cpp' | grep -v '^tests/' |
  xargs -P "$(nproc)" -n 1 clang-tidy -p build/address --quiet
