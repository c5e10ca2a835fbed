#!/usr/bin/env bash
# Tests the Debian package of the given build folder: makes it, unpacks it into an empty folder, and uses what is in it
# there. Works in a folder of the build folder.
set -u
work=$(realpath "$1")/package
cd -- "$(dirname -- "$(realpath -- "$0")")/.." || exit
rm -rf "$work"
mkdir -p "$work/log"
root=$work/unpacked/usr
bin=$root/bin
name=package-$$
failures=0

fail() { echo "test-package: $*"; failures=$((failures + 1)); }
expect() { # WHAT PATTERN GOT
  # shellcheck disable=SC2053
  [[ $3 == $2 ]] || fail "$1: wanted '$2', got '$3'"
}
# The words of a text that are paths in the source tree: what an installed program or page must not refer to.
source_paths() {
  grep -oE '[[:alnum:]_.-]+(/[[:alnum:]_.-]+)+' | while read -r path; do ls -d "$path"; done 2> /dev/null
}

(umask 077 && cpack --config "$work/../CPackConfig.cmake" -B "$work") > "$work/log/cpack" 2>&1 ||
  { cat "$work/log/cpack"; exit 1; }
package=$(echo "$work"/*.deb)
dpkg-deb -x "$package" "$work/unpacked" || exit 1

# What it is, and what is in it.
version=$(dpkg-deb -f "$package" Version)
dpkg --validate-version "$version" || fail "version $version"
expect "what it depends on" '*libc6*libfuse3*' "$(dpkg-deb -f "$package" Depends)"
find "$root" ! -type d -printf '%P\n' > "$work/log/contents"
grep -vxE -f - "$work/log/contents" > "$work/log/unexpected" << 'EXPECTED'
bin/(phone|dmd-[a-z-]+)
libexec/dmd/(phone|dmd|dmd-[a-z-]+|device_state_monitor\.conf)
share/dmd/device_state_monitor\.conf
share/man/man[158]/[a-z_.-]+\.[158]
share/bash-completion/completions/(phone|dmd-[a-z-]+)
share/zsh/vendor-completions/_dmd-desk
share/doc/dmd-desk/copyright
EXPECTED
expect "unexpected contents" '' "$(< "$work/log/unexpected")"
expect "links to nothing" '' "$(find "$root" -xtype l)"
expect "folders not for everybody" '' "$(find "$root" -type d ! -perm 755)"

# Every program, page and completion.
for program in "$bin"/*; do
  help=$("$program" --help) || fail "$program --help"
  expect "the help of $program" '' "$(source_paths <<< "$help")"
done
for command in $("$bin/phone" --complete '' | cut -f 1); do
  help=$("$bin/phone" "$command" --help) || fail "phone $command --help"
  expect "the help of phone $command" '' "$(source_paths <<< "$help")"
done
for program in phone dmd-config-check dmd-report; do
  expect "the version of $program" "$program $version" "$("$bin/$program" --version)"
done
"$root/libexec/dmd/dmd" --help > "$work/log/dmd" 2>&1
expect "the daemon's help" '*--config-file*' "$(< "$work/log/dmd")"
"$bin/dmd-config-check" "$root/share/dmd/device_state_monitor.conf" > "$work/log/check" || fail "$(< "$work/log/check")"
for page in "$root"/share/man/*/*; do
  mandoc -T ascii "$page" > "$work/log/page" || fail "$page"
  [ -s "$work/log/page" ] || fail "$page is empty"
  files=$(sed -n 's/^\.\(It \)*Pa //p' "$page")
  expect "the files of $page" '' "$(source_paths <<< "$files")"
  for file in $(grep -o '^/usr/[^ ]*' <<< "$files"); do
    [ -e "$work/unpacked$file" ] || fail "$page: $file is not installed"
  done
done
complete_words() { # WORD...: what bash makes of the last one
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
  _dmd_desk "$bin/$1" "${!#}"
  echo "${COMPREPLY[*]}"
}
source "$root/share/bash-completion/completions/phone"
expect "phone bo, completed" boot "$(complete_words phone bo)"
expect "phone report dsm_t, completed" "dsm_tp*" "$(complete_words phone report dsm_t)"
expect "phone boot --conf, completed" --config "$(complete_words phone boot --conf)"
if command -v zsh > /dev/null; then
  zsh -n "$root/share/zsh/vendor-completions/_dmd-desk" || fail "the completion of zsh"
else
  echo "test-package: without zsh, its completion is not checked"
fi

# A phone.
"$bin/phone" boot --name "$name" > "$work/log/phone" 2>&1 &
phone_pid=$!
trap 'kill "$phone_pid"; wait "$phone_pid"' EXIT
timeout 300 sh -c 'until grep -qs "Enter select" "$1"; do sleep 0.1; done' - "$work/log/phone" ||
  fail "no phone: $(< "$work/log/phone")"
expect "a report" 'reported: dmd_record_0.txt, dmd_dump_20002_*.tar.gz' \
  "$("$bin/phone" report --name "$name" dsm_tp 20002 'no answer')"
expect "the report, read" '*touch_panel*20002*no answer*' \
  "$("$bin/dmd-report" "$("$bin/phone" log-dir --name "$name")")"
[ "$failures" -eq 0 ]
