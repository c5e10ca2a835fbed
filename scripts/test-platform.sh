#!/usr/bin/env bash
# Tests the files for a platform tree, as far as that is possible on a desk: compiles the security policies with
# stand-ins for what a platform declares, compares the build files with each other, and builds the phone's programs for
# Android with the real headers of liblog and libcutils. Works in the given folder.
set -u
work=$(realpath -m "$1")
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
mkdir -p "$work/lib"
failures=0

fail() { echo "test-platform: $*"; failures=$((failures + 1)); }
quiet() { # COMMAND...: shows what the command prints only if it fails
  "$@" > "$work/log" 2>&1 || { cat "$work/log"; fail "$*"; }
}

# checkpolicy does not read file_contexts. So it gets each label there as that of a file system.
policy() { # RELEASE VERSION FOLDER
  local stand_ins=tests/platform/sepolicy variant
  for variant in user userdebug; do
    awk '!/^#/ && NF { print "genfscon file" NR " / " $2 }' "$3/file_contexts" > "$work/labels"
    m4 -D target_build_variant="$variant" -s "$stand_ins/head.conf" "$stand_ins/$1.te" "$3/dmd.te" \
      "$stand_ins/tail.conf" "$3/genfs_contexts" "$work/labels" > "$work/policy.conf" &&
      quiet checkpolicy -M -c "$2" -o "$work/policy" "$work/policy.conf" || fail "the policy for $1, $variant"
  done
}
policy 5.1 26 platform/android/5.1/sepolicy
policy later 30 platform/android/sepolicy

tests/platform/build_files.py || fail "the build files"

compile() { # RESULT OPTION...
  quiet "${CXX:-c++}" -std=gnu++17 -Wall -Wextra -Wshadow -Werror -fno-exceptions -fno-rtti -I. \
    -isystem tests/platform/include -isystem /usr/include/android -o "$@"
}
compile "$work/exception_log.o" -DDMD_ANDROID -c platform/android/exception_log.cpp
compile "$work/exception_log_test" -DDMD_ANDROID tests/platform/exception_log_test.cpp "$work/exception_log.o"
quiet "$work/exception_log_test"

# Debian's liblog is the phone's, without an exception log. Debian's libcutils has no properties.
libraries=$(dirname "$(find /usr/lib/*/android -name liblog.so -print -quit)")
compile "$work/lib/libcutils.so" -shared -fPIC platform/desk/properties.cpp
quiet cmake -S . -B "$work/build" -G Ninja -DANDROID=ON -DCMAKE_BUILD_TYPE=None \
  "-DCMAKE_CXX_FLAGS=-isystem $PWD/tests/platform/include -isystem /usr/include/android" \
  "-DCMAKE_EXE_LINKER_FLAGS=-L$work/lib -L$libraries -Wl,-rpath,$work/lib:$libraries" \
  "-DCMAKE_CXX_STANDARD_LIBRARIES=$work/exception_log.o"
quiet cmake --build "$work/build" --target dmd dmd-driver-check -j "$(nproc)"
"$work/build/dmd" --help 2> /dev/null | grep -q -e --config-file || fail "the daemon's help"
"$work/build/dmd-driver-check" --help | grep -q -e --drain || fail "the driver check's help"
[ "$failures" -eq 0 ]
