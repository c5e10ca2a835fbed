#!/usr/bin/env bash
# Tests the manual: the format of the pages, also of those that the given build folder made, and the options in the
# pages of its programs.
set -u
build=$(realpath "$1")
# mandoc looks for the pages that a page refers to in the current folder.
cd -- "$(dirname -- "$(realpath -- "$0")")/../docs/man" || exit
failures=0

fail() { echo "test-manual: $*"; failures=$((failures + 1)); }
options_in() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }

for page in *.[0-9] "$build"/man/*.[0-9]; do
  complaints=$(mandoc -T lint "$page") || true
  [ -z "$complaints" ] || fail "$complaints"
  program=$build/$(basename "${page%.*}")
  [ -x "$program" ] || continue
  in_help=$("$program" --help 2> /dev/null | options_in)
  in_page=$(mandoc -T ascii "$page" | sed 's/.\x08//g' | options_in)
  [ -n "$in_help" ] || fail "$program has no help"
  [ "$in_help" = "$in_page" ] || fail "$page and the program differ: $(diff <(echo "$in_help") <(echo "$in_page"))"
done

missing=$("$build/dmd-config-check" --clients | grep -vxF -f "$build/man/device_state_monitor.conf.5")
[ -z "$missing" ] || fail "the page of the configuration lacks of the clients: $missing"
[ "$failures" -eq 0 ]
