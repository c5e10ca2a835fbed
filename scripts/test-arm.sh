#!/usr/bin/env bash
# Builds everything for the phone's processor, 32-bit ARM, and runs all tests in an emulated machine with Debian's armhf
# kernel. Everything is in build/arm: the packages for ARM are unpacked there, not installed. Passes its arguments to
# ctest, as scripts/test.sh does.
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
scripts/setup.sh arm

arm=$PWD/build/arm
root=$arm/root
libraries=$root/usr/lib/arm-linux-gnueabihf
jobs=$(nproc)
mkdir -p "$arm"
exec 9> "$arm/lock"
flock -n 9 || { echo "test-arm: another run of this checkout is at work" >&2; exit 1; }

# The packages for the emulated machine: the kernel, the programs that the tests run, and the libraries. apt-get adds
# what they depend on. Packages that only an installed system needs are left out.
packages="linux-image-armmp libstdc++6 libfuse3-dev libgtest-dev libcli11-dev bash bsdutils cmake coreutils
  dash diffutils findutils grep gzip libarchive-tools mawk mount passwd procps sed tar util-linux"
left_out='^(debconf|initramfs-tools.*|klibc-utils|libc-dev-bin|libc6-dev|libicu-dev|libperl.*|linux-base|linux-libc-dev|perl.*|udev|usrmerge)_'

fetch_packages() {
  local apt=$arm/apt
  mkdir -p "$apt"/state/lists/partial "$apt"/cache/archives/partial
  : > "$apt/state/status" # nothing is installed in the emulated machine
  cat > "$apt/conf" << END
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
APT::Sandbox::User "";
Debug::NoLocking "true";
Dir::State "$apt/state";
Dir::State::status "$apt/state/status";
Dir::Cache "$apt/cache";
END
  export APT_CONFIG=$apt/conf
  # This machine may have a source that cannot be read now, and that nobody needs.
  apt-get update -q || echo "test-arm: not all package lists could be read"
  # shellcheck disable=SC2086 # one word for each package
  apt-get install -q -y --download-only $packages
  unset APT_CONFIG
}

unpack_packages() {
  local new=$root.new kernel package
  rm -rf "$new" && mkdir -p "$new/usr"/{bin,lib,sbin}
  ln -s usr/bin usr/lib usr/sbin "$new"
  for package in "$arm"/apt/cache/archives/*.deb; do
    if [[ ${package##*/} == linux-image-[0-9]* ]]; then
      kernel=$(mktemp -d "$arm/kernel.XXXXXX")
      dpkg-deb --fsys-tarfile "$package" | tar -x -C "$kernel" --wildcards './boot/vmlinuz-*' '*/fs/fuse/fuse.ko'
      find "$kernel" -name 'vmlinuz-*' -exec cp {} "$arm/vmlinuz" \;
      find "$kernel" -name fuse.ko -exec cp {} "$new/fuse.ko" \;
      rm -rf "$kernel"
    elif ! [[ ${package##*/} =~ $left_out ]]; then
      dpkg-deb --fsys-tarfile "$package" | tar -x -C "$new" --keep-directory-symlink
    fi
  done
  rm -rf "$root" && mv "$new" "$root"
}

# Fetches the packages again if the list has changed or the folder was removed.
wanted=$(echo "$packages $left_out" | cksum)
if [ "$(cat "$arm/packages" 2> /dev/null)" != "$wanted" ]; then
  echo "test-arm: fetching Debian's packages for ARM"
  { fetch_packages && unpack_packages; } > "$arm/packages.log" 2>&1 || { tail -20 "$arm/packages.log"; exit 1; }
  echo "$wanted" > "$arm/packages"
fi

echo "test-arm: building build/arm/build"
export PKG_CONFIG_LIBDIR=$libraries/pkgconfig PKG_CONFIG_SYSROOT_DIR=$root
{ cmake -S . -B "$arm/build" -G Ninja -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=arm \
    -DCMAKE_CXX_COMPILER=arm-linux-gnueabihf-g++ -DCMAKE_FIND_ROOT_PATH="$root" \
    -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY \
    -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY \
    -DCMAKE_LIBRARY_ARCHITECTURE=arm-linux-gnueabihf -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath-link,$libraries" \
    -DCMAKE_CXX_FLAGS_INIT="-isystem $root/usr/include" -DDMD_TEST_TIMEOUT=1800 &&
  cmake --build "$arm/build" -j "$jobs"; } > "$arm/build.log" 2>&1 || { tail -40 "$arm/build.log"; exit 1; }

echo "test-arm: packing the emulated machine"
image=$arm/image
rm -rf "$image" && mkdir -p "$image"/{dev,etc,proc,root,run,sys,tmp}
cp -a "$root"/{bin,lib,sbin,fuse.ko} "$image"
cp -a "$root/etc/alternatives" "$image/etc"
(cd "$root" && find usr -path usr/include -prune -o -path 'usr/share/cmake*/Help' -prune -o -path usr/share/doc -prune -o \
  -path usr/share/locale -prune -o -path usr/share/man -prune -o -name gconv -prune -o -name '*.a' -prune -o -print |
  cpio -pdm --quiet "$image")
# The build folder keeps its path, because ctest's files name it.
mkdir -p "$image$PWD"
find scripts build/arm/build \( -name CMakeFiles -o -name '*.a' -o -name '.ninja*' \) -prune -o -print |
  cpio -pdm --quiet "$image$PWD"
arm-linux-gnueabihf-strip "$image$arm/build"/{dmd,dmd-driver-check,dmd_tests,phone}
printf 'root:x:0:0:root:/root:/bin/sh\nuser:x:1000:1000::/root:/bin/sh\n' > "$image/etc/passwd"
printf 'root:x:0:\nuser:x:1000:\n' > "$image/etc/group"
cp scripts/arm-init.sh "$image/init"
{
  printf 'cd %q && ctest --no-tests=error --test-dir build/arm/build -j 2 --output-on-failure' "$PWD"
  [ $# -eq 0 ] || printf ' %q' "$@"
} > "$image/command"
(cd "$image" && find . | cpio -o -H newc -R 0:0 --quiet) | gzip -1 > "$arm/initramfs.gz"
rm -rf "$image"

# Writes everything that the machine prints to console.log. Shows what the tests print, but of those that pass only
# one line in ten, or on a terminal only the latest.
show() {
  local line tests=no begin='' end=$'\n'
  [ ! -t 1 ] || begin=$'\r\033[K' end=''
  status=1
  while IFS= read -r line; do
    line=${line%$'\r'}
    printf '%s\n' "$line" >&8
    case $line in
      'arm-init: tests begin') tests=yes ;;
      'arm-init: tests end '*) tests=no status=${line##* } ;;
      *' Passed '*) [ $tests = no ] || [ -z "$begin" ] && [[ ! $line =~ ^\ *[0-9]*0/ ]] || printf '%s%s%s' "$begin" "$line" "$end" ;;
      *' Start '*) ;;
      *) [ $tests = no ] || printf '%s%s\n' "$begin" "$line" ;;
    esac
  done
  return "$status"
}

echo "test-arm: booting; the machine's console is build/arm/console.log"
if ! timeout 7200 qemu-system-arm -M virt -cpu cortex-a15 -smp 2 -m 1024 -nic none -nographic -no-reboot \
  -kernel "$arm/vmlinuz" -initrd "$arm/initramfs.gz" -append "console=ttyAMA0 quiet panic=-1 now=$(date +%s)" \
  < /dev/null 2>&1 | show 8> "$arm/console.log"; then
  grep -q '^arm-init: tests end' "$arm/console.log" || tail -20 "$arm/console.log"
  exit 1
fi
