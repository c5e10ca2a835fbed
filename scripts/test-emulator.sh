#!/usr/bin/env bash
# Tests the phone command from outside: exit statuses, options, refusals, and that nothing of a phone is left
# when it ends, however it ends. Takes the path of the phone command; prints what is wrong, if anything.
set -u
phone=$(realpath "$1")
# A number, so that it can also stand in the arguments of every sleep that is run here.
name=$((1000000 + $$))
scratch=$(mktemp -d "$(dirname "$phone")/emulator.XXXXXX") || exit 1
trap 'pkill -KILL -f "run --name $name"; rm -rf "$scratch"' EXIT
trap 'exit 1' HUP INT PIPE TERM
mounts=$(cat /proc/self/mountinfo)
failures=0

fail() {
  echo "test-emulator: $*"
  failures=$((failures + 1))
}

expect() { # WHAT WANTED GOT
  [ "$2" = "$3" ] || fail "$1: wanted '$2', got '$3'"
}

status_of() { # COMMAND...: its exit status; what it printed is in $scratch/out and $scratch/err
  "$@" > "$scratch/out" 2> "$scratch/err" < /dev/null
  echo $?
}

expect_refusal() { # WHAT STATUS PART COMMAND...: one line on standard error holds PART
  local what=$1 wanted=$2 part=$3
  shift 3
  expect "$what" "$wanted" "$(status_of "$@")"
  expect "lines of $what" 1 "$(wc -l < "$scratch/err")"
  grep -qF -- "$part" "$scratch/err" || fail "$what: no '$part' in '$(cat "$scratch/err")'"
}

patience=300 # seconds, as the machine may be slow

wait_until() { # CONDITION...
  local end=$((SECONDS + patience))
  until "$@"; do
    [ "$SECONDS" -lt "$end" ] || { patience=10; return 1; } # a broken phone is not to take hours
    sleep 0.01
  done
}

# The name stands in the arguments of `phone`, of the phone's first processes and of what runs in it.
is_gone() {
  ! pgrep -f "$name" > /dev/null && ! grep -q "$name" /proc/net/unix
}

expect_nothing_left() { # WHAT
  wait_until is_gone || fail "$1: $(pgrep -af "$name")"
  expect "mounts after $1" "$mounts" "$(cat /proc/self/mountinfo)"
}

start_phone() { # OPTIONS... -- COMMAND...: in the background, with its process number in $phone_pid
  rm -f "$scratch/ready"
  "$phone" run --name "$name" --data "$scratch" "$@" > "$scratch/out" 2> "$scratch/err" &
  phone_pid=$!
  wait_until [ -e "$scratch/ready" ] || fail "no phone: $(cat "$scratch/err")"
}

# Exit statuses.
expect true 0 "$(status_of "$phone" run -- true)"
expect false 1 "$(status_of "$phone" run -- false)"
expect "exit 42" 42 "$(status_of "$phone" run -- sh -c 'exit 42')"
expect "killed command" 137 "$(status_of "$phone" run -- sh -c 'kill -9 $$')"
expect "dead driver" 9 "$(status_of "$phone" run -- sh -c 'kill -9 2; exit 9')"
expect_refusal "missing command" 127 "--bind" "$phone" run -- /no/such/command
expect_refusal "no program" 126 "Permission denied" "$phone" run -- /etc/passwd
expect_refusal "no command" 125 "phone run -- COMMAND" "$phone" run
expect_refusal "missing configuration" 125 "/no/such.conf" "$phone" run --config /no/such.conf -- true
expect_refusal "missing folder" 125 "/no/such" "$phone" run --data /no/such -- true
expect_refusal "a size that is none" 125 "as 65536, 64K or 100M" "$phone" run --data-size 1x -- true
expect_refusal "no phone" 1 "boot one" "$phone" report --name "$name" dsm_tp 1 text
expect_refusal "no phone for a shell" 125 "boot one" "$phone" shell --name "$name"
expect_refusal "no /dev/fuse" 125 "modprobe fuse" "$phone" run -- "$phone" run -- true
for command in '' boot run report state command key property shell log log-dir; do
  # shellcheck disable=SC2086
  expect "help of $command" 0 "$(status_of "$phone" $command --help)"
  [ -s "$scratch/out" ] || fail "no help of $command"
done
expect_refusal "a report without operands" 1 "ERROR is required" "$phone" report dsm_tp
expect_refusal "no keys" 1 "WORD is required" "$phone" key
expect_refusal "half a command" 1 "NUMBER is required" "$phone" command dsm_tp on
expect_refusal "an unknown command" 1 "no command nonsense; there are boot, run" "$phone" nonsense
expect_refusal "no command" 1 "no command; there are boot, run" "$phone"
for wrong in --nonsense true '--debug-build --commercial' '--data-size 0' '--data=' --name; do
  # shellcheck disable=SC2086
  expect_refusal "run $wrong" 125 --help "$phone" run $wrong -- true
done
expect_refusal "an empty name" 125 empty "$phone" run --name '' -- true
expect_refusal "a line of two" 1 "a?b'" "$phone" report --name $'a\nb' dsm_tp 1 text

# Options.
get_switch='cat /dev/__properties__/persist.sys.qelvan.debug.on'
expect "debug build" 1 "$("$phone" run -- sh -c "$get_switch")"
expect "commercial build" 0 "$("$phone" run --commercial -- sh -c "$get_switch")"
echo "# mine" > "$scratch/mine.conf"
expect "configuration" "# mine" \
  "$("$phone" run --config "$scratch/mine.conf" -- cat /system/etc/device_state_monitor.conf)"
expect "full disk" 1 "$(status_of "$phone" run --data-size 65536 -- dd if=/dev/zero of=/data/fill bs=1k count=65)"
expect "room on the disk" 0 "$(status_of "$phone" run --data-size 65536 -- dd if=/dev/zero of=/data/fill bs=1k count=64)"
expect "bound folder" "# mine" "$("$phone" run --bind "$scratch" -- cat "$scratch/mine.conf")"
expect "write into a bound folder" 2 "$(status_of "$phone" run --bind "$scratch" -- sh -c "echo > $scratch/new")"
for taken in / /dev /dev/shm /etc /proc /tmp; do
  expect_refusal "bound $taken" 125 "--bind cannot show $taken" "$phone" run --bind $taken -- true
done
expect "the programs' folder on the desk" 1 "$(status_of "$phone" run -- test -e "$(dirname "$phone")")"
expect "command of the desk" 0 "$(status_of "$phone" run -- "$phone" --help)"
expect "relative command" 0 "$(cd "$(dirname "$phone")" && status_of "$phone" run -- ./phone --help)"
expect "environment" "test 0" "$(GTEST_X=test SECRET=1 "$phone" run -- sh -c 'echo "$GTEST_X" "${SECRET-0}"')"
expect "descriptors" "0 1 2 3" "$("$phone" run -- sh -c 'echo $(ls /proc/self/fd)' 7< /dev/null)"
expect "arguments after --" "-- --name x" "$("$phone" run -- echo -- --name x)"
# Root in a phone changes nothing of the desk: its name, its shared memory, its devices.
for kind in uts ipc; do
  [ "$(readlink /proc/self/ns/$kind)" != "$("$phone" run -- readlink /proc/self/ns/$kind)" ] || fail "the desk's $kind"
done
expect "a device of the desk" 1 "$(status_of "$phone" run -- chmod "$(stat -c %a /dev/null)" /dev/null)"

# A phone that runs is driven from outside; a second one needs a name of its own.
start_phone -- sh -c "exec 3< /dev/input/event1; touch /data/ready; exec sleep $name"
expect_refusal "second phone of a name" 125 "--name" "$phone" run --name "$name" -- true
for text in '-h' '++' '--' '-text' ''; do
  expect "report of '$text'" 0 "$(status_of "$phone" report --name "$name" dsm_tp -5 "$text")"
  expect "what a report of '$text' prints" "the daemon is not running; the driver keeps the error" "$(cat "$scratch/out")"
done
expect "state" 0 "$(status_of "$phone" state --name "$name" dsm_tp -5)"
expect_refusal "unknown client" 1 "no client nobody; dmd-config-check --clients lists" "$phone" state --name "$name" nobody 1
expect "key" 0 "$(status_of "$phone" key --no-wait --name "$name" up down= up+)"
expect "what a key prints" "" "$(cat "$scratch/out")"
expect_refusal "an unknown key" 1 "up, down or power" "$phone" key --name "$name" up volume
expect_refusal "an empty key" 1 "''" "$phone" key --name "$name" ''
expect_refusal "a key that nobody watches" 1 "not running" "$phone" key --name "$name" up power
expect_refusal "a command without a daemon" 1 "not running" "$phone" command --name "$name" dsm_tp on -1
expect_refusal "a log without a daemon" 1 "keeps no log" "$phone" log --name "$name"
expect "property" "" "$("$phone" property --name "$name" a.b value)"
expect "property" "value" "$("$phone" property --name "$name" a.b)"
expect "shell" "value" "$("$phone" shell --name "$name" -- cat /dev/__properties__/a.b)"
expect "status of a shell" 3 "$(status_of "$phone" shell --name "$name" -- sh -c 'exit 3')"
expect "log-dir" "$scratch/kvdx_logs/dmd_log" "$("$phone" log-dir --name "$name")"
mkdir -p "$scratch/kvdx_logs/dmd_log" && touch "$scratch/kvdx_logs/dmd_log/a_report"
script -qec "$phone log-dir --name $name" /dev/null < /dev/null > "$scratch/shown"
grep -q a_report "$scratch/shown" || fail "log-dir does not list on a terminal: $(cat "$scratch/shown")"
"$phone" shell --name "$name" -- sh -c "touch /data/shell; exec sleep $name" &
shell_pid=$!
wait_until [ -e "$scratch/shell" ] || fail "no shell"

# However a phone ends, nothing is left: told to end, with a process in the background and a shell.
kill -TERM "$phone_pid"
wait "$phone_pid"
expect "status after SIGTERM" 143 $?
wait "$shell_pid"
expect "status of the shell" 137 $?
expect_nothing_left SIGTERM
start_phone -- sh -c "sleep $name & touch /data/ready; wait"
kill -HUP "$phone_pid"
wait "$phone_pid"
expect "status after SIGHUP" 129 $?
expect_nothing_left SIGHUP
# The command decides what a signal does.
start_phone -- sh -c 'trap "exit 5" TERM; touch /data/ready; while :; do sleep 0.01; done'
kill -TERM "$phone_pid"
wait "$phone_pid"
expect "status after a handled SIGTERM" 5 $?
# The command ends and leaves others, one of them with a session of its own.
expect "a command with others" 0 "$(status_of "$phone" run --name "$name" -- \
  sh -c "sleep $name & setsid sleep $name & exit 0")"
expect_nothing_left "an end with others running"
# Its terminal is closed, where the kernel tells nobody but the leader of the session.
mkfifo "$scratch/keys"
start_terminal() { # SHELL-COMMAND: on a terminal of its own whose keys are descriptor 8
  env --default-signal=INT script -qefc "$1" "$scratch/screen" < "$scratch/keys" > /dev/null 2>&1 &
  terminal_pid=$!
  exec 8> "$scratch/keys"
}
end_terminal() {
  exec 8>&-
  kill "$terminal_pid" 2> /dev/null
  wait "$terminal_pid"
}
hold_boot() { # stops its first process as soon as its control socket is there; fails when the boot is over
  start_terminal "exec $phone run --name $name -- sleep $name"
  local end=$((SECONDS + patience)) # without a pause, so that the boot is not over
  until [[ $(< /proc/net/unix) == *"-$name"* ]] || [ "$SECONDS" -ge "$end" ]; do :; done
  read -r phone_pid < "/proc/$terminal_pid/task/$terminal_pid/children"
  read -r first_process < "/proc/$phone_pid/task/$phone_pid/children"
  kill -STOP "$first_process"
  wait_until grep -q '^State:.T' "/proc/$first_process/status"
  # The driver is its first child, then comes the media server, and the boot is over.
  [ "$(wc -w < "/proc/$first_process/task/$first_process/children")" -lt 2 ]
}
start_and_hold_boot() { # on a busy machine it may take several
  local end=$((SECONDS + patience))
  until hold_boot || [ "$SECONDS" -ge "$end" ]; do
    kill -CONT "$first_process"
    end_terminal
    wait_until is_gone
  done
}
has_socket() { grep -q -- "-$name" /proc/net/unix; }
has_no_socket() { ! has_socket; }
has_request() { [ "$(grep -c -- "-$name" /proc/net/unix)" = 3 ]; } # beside its connection to find the phone
start_terminal "exec $phone run --name $name --data $scratch -- sh -c 'touch /data/closed; sleep $name'"
wait_until [ -e "$scratch/closed" ] || fail "no phone on a terminal"
kill -KILL "$terminal_pid"
{ wait "$terminal_pid"; } 2> /dev/null
expect_nothing_left "the end of its terminal"
exec 8>&-
# A shell in the phone gives the terminal back.
start_terminal "$phone run --name $name -- bash --norc; read line; echo got \$line"
wait_until has_socket
printf 'exit\n' >&8
wait_until has_no_socket
printf 'it\n' >&8
wait_until grep -q 'got it' "$scratch/screen" || fail "the terminal was kept: $(cat "$scratch/screen")"
end_terminal
# Held still in its boot, while its root may still show the desk: a shell waits, and a Ctrl-C is not lost.
start_and_hold_boot
"$phone" shell --name "$name" -- sh -c '[ -e /dev/dsm ] && [ ! -e /.phone/desk ]' &
shell_pid=$!
wait_until has_request || fail "a shell does not ask whether the phone has booted"
kill -CONT "$first_process"
wait "$shell_pid"
expect "status of a shell during the boot" 0 $?
end_terminal
start_and_hold_boot
printf '\003' >&8
wait_until grep -q '^ShdPnd:.*[2367abef]$' "/proc/$first_process/status"
kill -CONT "$first_process"
expect_nothing_left "Ctrl-C during the boot"
end_terminal
# Killed while it runs, and at every moment of its start.
start_phone -- sh -c "setsid sleep $name & touch /data/ready; wait"
kill -KILL "$phone_pid"
{ wait "$phone_pid"; } 2> /dev/null
expect_nothing_left SIGKILL
for delay in 0 0.001 0.002 0.003 0.004 0.005 0.006 0.008 0.01; do
  "$phone" run --name "$name-$delay" -- sleep "$name" > /dev/null 2>&1 &
  sleep "$delay"
  kill -KILL $!
  wait $!
done 2> /dev/null
expect_nothing_left "SIGKILL at its start"

# Root may be in a plain chroot, whose root is a folder and no mount. A phone there changes nothing of the mounts,
# although they are shared.
in_chroot() { # COMMAND...
  mkdir -p "$scratch/chroot"
  unshare -m bash -c '
    mount -t tmpfs none "$1/chroot" && mount --make-shared "$1/chroot" && root=$1/chroot/root || exit 1
    mkdir -p "$root/tmp" "$root$2"
    for place in /usr /bin /sbin /lib* /etc /dev /proc /sys; do
      if [ -L "$place" ]; then cp -P "$place" "$root"; continue; fi
      mkdir "$root$place" && mount --rbind "$place" "$root$place"
    done
    mount --bind "$2" "$root$2"
    ! mountpoint -q "$root" && before=$(cat /proc/self/mountinfo) || exit 1
    chroot "$root" "${@:3}"
    status=$?
    [ "$before" = "$(cat /proc/self/mountinfo)" ] || exit 1
    exit "$status"' - "$scratch" "$(dirname "$phone")" "$@"
}
if [ "$(id -u)" = 0 ] && mountpoint -q /; then # in one already, all of the above shows it
  rm -f "$scratch/ready"
  in_chroot "$phone" run --name "$name" --data "$scratch" -- \
    sh -c 'touch /data/ready; until [ -e /data/end ]; do sleep 0.01; done; exit 7' 2> "$scratch/err" &
  wait_until [ -e "$scratch/ready" ] || fail "no phone in a chroot: $(cat "$scratch/err")"
  for from in env in_chroot; do
    expect "a shell by $from of a phone in a chroot" /dev/dsm \
      "$($from "$phone" shell --name "$name" -- sh -c 'ls -d /dev/dsm /.phone/desk 2> /dev/null')"
  done
  touch "$scratch/end"
  wait $!
  expect "status of a phone in a chroot" 7 $?
  expect_nothing_left "a phone in a chroot"
fi

# Without root a user namespace does the same. Where there is root, take that away, and give everybody /dev/fuse
# in mounts that nobody else sees.
unprivileged="setpriv --reuid=65534 --regid=65534 --clear-groups"
if [ "$(id -u)" = 0 ] && $unprivileged unshare -Ur true 2> /dev/null; then
  refused=$(unshare -m sh -c 'mount --bind /dev/null /dev/fuse; mount -o remount,bind,nodev /dev/fuse; "$@"' - \
    "$phone" run -- true 2>&1)
  expect "status without /dev/fuse" "125 1" "$? $(echo "$refused" | grep -c "cannot open /dev/fuse")"
  expect "a user's phone" "0 0 dsm_tp" "$(unshare -m sh -c '
    mount -t tmpfs none /mnt && mknod -m 666 /mnt/fuse c 10 229 && mount --bind /mnt/fuse /dev/fuse
    exec "$@"' - $unprivileged "$phone" run --name "$name" -- sh -c '
      exec 3<> /dev/dsm && echo $(id -u) $(id -g) dsm_tp')"
  expect_nothing_left "a user's phone"
fi

[ "$failures" = 0 ] || { echo "test-emulator: $failures failures"; exit 1; }
echo "test-emulator: all is well"
