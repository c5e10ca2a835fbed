#!/bin/bash
# The first process in the emulated machine of test-arm.sh. It prepares the machine, runs the tests, and turns it off.
export PATH=/usr/sbin:/usr/bin HOME=/root TERM=dumb
mount -t devtmpfs dev /dev
exec < /dev/console > /dev/console 2>&1
stty -echo

# The phone emulator needs to exchange the root, but a kernel does not let go of the one that it starts with.
if [ ! -e /new ]; then
  mkdir /new
  mount --bind / /new
  cd /new || exit
  mount --move . /
  exec chroot . /init
fi

mount -t devtmpfs dev /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts -o ptmxmode=666 pts /dev/pts
mount -t tmpfs tmp /tmp
mount -t proc proc /proc
mount -t sysfs sys /sys
insmod /fuse.ko
chmod 666 /dev/fuse
mkdir -p /mnt
read -r options < /proc/cmdline
date -s "@${options##*now=}" > /dev/null
echo "arm-init: $(uname -srm)"
echo 'arm-init: tests begin'
bash /command < /dev/null
echo "arm-init: tests end $?"
echo o > /proc/sysrq-trigger
sleep 60
