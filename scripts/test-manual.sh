#!/usr/bin/env bash
# Tests the manual pages: their format, and that those of the programs in the build folder name exactly the options
# that the programs name in their help.
set -u
build=$(realpath "$1")
cd -- "$(dirname -- "$(realpath -- "$0")")/../docs/man"
failures=0

fail() { echo "test-manual: $*"; failures=$((failures + 1)); }
options_in() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }

for page in *.[0-9]; do
  complaints=$(mandoc -T lint "$page") || true
  [ -z "$complaints" ] || fail "$complaints"
  program=$build/${page%.*}
  [ -x "$program" ] || continue
  in_help=$("$program" --help 2> /dev/null | options_in)
  in_page=$(mandoc -T ascii "$page" | sed 's/.\x08//g' | options_in)
  [ -n "$in_help" ] || fail "$program has no help"
  [ "$in_help" = "$in_page" ] || fail "$page and the program differ: $(diff <(echo "$in_help") <(echo "$in_page"))"
done
[ "$failures" -eq 0 ]
