#!/usr/bin/env bash
# Tests the manual against the code: the format of the manual pages, the options in the pages of the programs in the
# given build folder, and the clients that docs/configuration.md lists.
set -u
build=$(realpath "$1")
# mandoc looks for the pages that a page refers to in the current folder.
cd -- "$(dirname -- "$(realpath -- "$0")")/../docs/man" || exit
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

# The list is the paragraph that begins with "The clients:".
in_table=$(sed -n 's/^ *row("\([^"]*\)".*/\1/p' ../../clients/client_table.cpp | sort)
in_list=$(sed -n '/^The clients:/,/^$/p' ../configuration.md | grep -oE '`[^`]+`' | tr -d '`' | sort)
[ -n "$in_table" ] || fail "clients/client_table.cpp has no rows"
[ "$in_table" = "$in_list" ] ||
  fail "clients/client_table.cpp and docs/configuration.md differ: $(diff <(echo "$in_table") <(echo "$in_list"))"
[ "$failures" -eq 0 ]
