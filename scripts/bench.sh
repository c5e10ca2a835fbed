#!/usr/bin/env bash
# Measures the daemon beside its peers, in an emulated phone, and writes what came out into docs/performance.md,
# between the two marks there. With options or parts of the measurement for build/release/dmd_bench (--help lists them),
# the table is only printed. Nothing else should be at work on the machine.
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
scripts/setup.sh bench

document=docs/performance.md
if [ "$(grep -x -e '<!-- measured -->' -e '<!-- end -->' "$document")" != $'<!-- measured -->\n<!-- end -->' ]; then
  echo "bench: $document has not the two marks that the table stands between" >&2
  exit 1
fi
build=$PWD/build/release
mkdir -p "$build"
exec 9> build/lock
flock -n 9 || { echo "bench: a test, a demo or another measurement of this checkout is running" >&2; exit 1; }
echo "bench: building build/release" >&2
{ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release &&
  cmake --build "$build" -j "$(nproc)" --target dmd phone dmd_bench dmd-report; } > "$build/build.log" 2>&1 ||
  { tail -40 "$build/build.log" >&2; exit 1; }

table=$build/table.md
"$build/phone" run -- "$build/dmd_bench" "$@" > "$table" || { cat "$table"; exit 1; }
[ $# -eq 0 ] || { cat "$table"; exit 0; }
if [ ! -d "$build/fleet" ]; then
  rm -rf "$build/part"
  tests/fleet.py thousand "$build/part"
  mv "$build/part" "$build/fleet"
fi
bench/report_fleet.py "$build/dmd-report" "$build/fleet" >> "$table"
cat "$table"

processor=$(sed -n 's/^model name[^:]*: *//p' /proc/cpuinfo | head -1)
{
  sed '/^<!-- measured -->$/q' "$document"
  echo
  echo "On $(date +%F): ${processor:-$(uname -m)}, $(nproc) processors, $(uname -sr)."
  echo
  cat "$table"
  echo
  sed -n '/^<!-- end -->$/,$p' "$document"
} > "$build/performance.md"
cat "$build/performance.md" > "$document"
