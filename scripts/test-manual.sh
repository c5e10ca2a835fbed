#!/usr/bin/env bash
# Tests the manual: the format of the pages, also of those that the given build folder made, and the options in the
# pages of its programs.
set -u
build=$(realpath "$1")
# mandoc looks for the pages that a page refers to in the current folder.
cd -- "$(dirname -- "$(realpath -- "$0")")/../docs/man" || exit
failures=0
command -v mandoc > /dev/null || { echo "test-manual: mandoc is missing; scripts/setup.sh test installs it"; exit 1; }

fail() { echo "test-manual: $*"; failures=$((failures + 1)); }
options_in() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }
# An example names an option, but does not say what it does.
help_of() { # PROGRAM: with that of its commands
  "$1" --help
  "$1" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p' | while read -r command; do
    "$1" "$command" --help | sed '/^Examples*:/,$d'
  done
}
page_of() { mandoc -T ascii "$1" | sed 's/.\x08//g; /^EXAMPLES/,/^[A-Z]/d'; }

for page in *.[0-9] "$build"/man/*.[0-9]; do
  complaints=$(mandoc -T lint "$page") || true
  [ -z "$complaints" ] || fail "$complaints"
  program=$build/$(basename "${page%.*}")
  [ -x "$program" ] || continue
  in_help=$(help_of "$program" 2> /dev/null | options_in)
  in_page=$(page_of "$page" | options_in)
  [ -n "$in_help" ] || fail "$program has no help"
  [ "$in_help" = "$in_page" ] || fail "$page and the program differ: $(diff <(echo "$in_help") <(echo "$in_page"))"
done

missing=$("$build/dmd-config-check" --clients | grep -vxF -f "$build/man/device_state_monitor.conf.5")
[ -z "$missing" ] || fail "the page of the configuration lacks of the clients: $missing"
[ "$failures" -eq 0 ]
