#!/usr/bin/env bash
# Plays the first hour of somebody who brings up a driver: wrong options and names, errors that nobody reads, a daemon
# that is killed. Compares each answer with what helps then. Takes the folder of the programs.
set -u
build=$(realpath "$1")
name=$((2000000 + $$))
scratch=$(mktemp -d "$build/first-hour.XXXXXX") || exit 1
phone_pid=
end_phone() { [ -z "$phone_pid" ] || { kill "$phone_pid" 2> /dev/null; wait "$phone_pid"; } 2> /dev/null; phone_pid=; }
trap 'end_phone; rm -rf "$scratch"' EXIT
trap 'exit 1' HUP INT PIPE TERM
cd "$scratch" || exit 1
failures=0

fail() { echo "test-first-hour: $*"; failures=$((failures + 1)); }

# PATTERN COMMAND...: what the command says, on both streams, must match the pattern as a whole. Where the machine is too
# slow for an outcome in two seconds, the command is done again.
expect() {
  local pattern=$1 said tries=0
  shift
  until said=$("$@" 2>&1 < /dev/stdin); [[ $said != *"the daemon "*"phone log -f"* ]] || [ $((tries += 1)) -ge 10 ]; do
    sleep 1
  done
  # shellcheck disable=SC2053
  [[ $said == $pattern ]] || fail "$* said '$said', not '$pattern'"
}

driver() { # WORD...: a request to the emulated driver that has no command of phone
  python3 - "dmd-phone-$(id -u)-$name" "$@" << 'END'
import socket, struct, sys
driver = socket.socket(socket.AF_UNIX)
driver.connect("\0" + sys.argv[1])
words = [word.encode() for word in sys.argv[2:]]
driver.sendall(b"".join(struct.pack("I", len(word)) + word for word in words))
driver.shutdown(socket.SHUT_WR)
driver.recv(1000)
END
}

phone() { # COMMAND [OPERAND...] to the phone of this test
  local command=$1
  shift
  "$build/phone" "$command" --name "$name" "$@"
}

wait_until() { # CONDITION...: for five minutes, as the machine may be slow
  local end=$((SECONDS + 300))
  until "$@"; do
    [ "$SECONDS" -lt "$end" ] || { fail "never: $*"; return 1; }
    sleep 0.05
  done
}

logs() { grep -qsF -- "$1" log; }

boot() { # OPTION...: boots a phone whose output goes to the file "log", and waits until its daemon has started
  rm -f log
  env --default-signal=INT "$build/phone" boot --name "$name" "$@" > log 2>&1 < /dev/null &
  phone_pid=$!
  wait_until logs "From another terminal:"
}

# What is wrong on a command line is told in one line, with what may be meant.
expect "phone: no option --conf; did you mean --config? (phone boot --help*" "$build/phone" boot --conf x
expect "phone: no option --nam; did you mean --name? (phone report --help*" "$build/phone" report --nam x dsm_tp 1 x
expect "phone: no command repot; did you mean report? (phone --help*" "$build/phone" repot dsm_tp 1 x
expect "phone: TEXT is required (phone report --help*" "$build/phone" report dsm_tp 1
expect "phone: option --count stands before the operands (*" "$build/phone" report dsm_tp 1 x --count 3
expect "phone: option --name stands behind the command (*" "$build/phone" --name x report dsm_tp 1 x
expect "phone: too many operands; what it runs, or passes on, stands behind '--' (*" "$build/phone" run ls
expect "phone: --data-size: a size is a number up to 1T, as 65536, 64K or 100M (*" "$build/phone" boot --data-size 100X
expect "phone: no phone answers at '*$name' (boot one with 'phone boot'*" phone report dsm_tp 1 x
expect "phone 2*-*" "$build/phone" --version
expect "report	A driver reports*" bash -c "'$build/phone' --complete rep | grep ^report"
expect "dsm_tp" bash -c "'$build/phone' --complete report --count 3 dsm_t | head -n 1"
expect "on
off" "$build/phone" --complete command dsm_tp ""
expect "" "$build/phone" --complete report dsm_tp ""

# What is wrong in a configuration is told before the phone boots, and by the checker, in the form of compilers.
sed '/client_name dsm_tp/{h;s/.*/algo_type: listen/;G}' "$build/device_state_monitor.conf" > my.conf
line=$(grep -n "algo_type:" my.conf | cut -d : -f 1)
warning="my.conf:$line: warning: *'algo_type:' is no keyword; write 'algo_type' without the colon*"
expect "$warning" "$build/dmd-config-check" --warnings my.conf
expect "dmd-config-check: no client dsm_tpp; did you mean dsm_tp?" "$build/dmd-config-check" my.conf --explain dsm_tpp 1
expect "Error 29999 of dsm_tp: no trigger of section \[touch\], line *" \
  "$build/dmd-config-check" "$build/device_state_monitor.conf" --explain dsm_tp 29999
expect "Error 1 of dsm_key: no listen section*" \
  "$build/dmd-config-check" "$build/device_state_monitor.conf" --explain dsm_key 1

# An error is reported, and the answer says where it is.
boot --config my.conf
expect "$warning" head -n 1 log
logs "The log is in /proc/" || fail "boot does not say where the log is"
expect "reported: dmd_record_0.txt, dmd_dump_20002_??????.tar.gz" phone report dsm_tp 20002 "no answer"
expect "no trigger for 29999: cleared" phone report dsm_tp 29999 x
expect "dsm_key has no listen section: nobody reads it" phone report dsm_key 1 x
expect "phone: no client dsm_tpp; did you mean dsm_tp?" phone report dsm_tpp 1 x
expect "phone: no client nobody; dmd-config-check --clients lists the *" phone state nobody 1
expect "phone: the error is a whole number of 32 bits, not 'x'" phone report dsm_tp x x
expect "dsm_anc_hs has no force-dump slot 0: nothing is dumped" phone command dsm_anc_hs on 1
expect "reported: dmd_record_0.txt, dmd_dump_20100_??????.tar.gz" phone command dsm_lcd on 20100
expect "phone: no client dsm_lcdd; did you mean dsm_lcd?" phone command dsm_lcdd on 1
expect "phone: the test switch is on or off, not 'yes'" phone command dsm_lcd yes 1
expect "dsm_tp has no poll section: nobody asks for its state" phone state dsm_tp 1
expect "the daemon asks for it every 60 s" phone state dsm_pmu_coul 7
expect "no combination yet: *" phone key up
expect "phone: 'volume' is no word for a key: *" phone key volume
expect "" phone report --no-wait dsm_tp 29999 x
head -c 1048576 /dev/zero | tr '\0' x > firmware.log
expect "reported: dmd_record_0.txt, dmd_dump_28200_??????.tar.gz; of the text's 1048576 bytes the daemon takes 16384" \
  phone report dsm_ext4 28200 - < firmware.log
phone report --count 3 --every 1 dsm_charger 10100 x > outcome
has_three() { [ "$(grep -c "dsm_charger has error (10100) reported" log)" -eq 3 ]; }
wait_until has_three

# A driver whose texts cannot be read, or one that tells no numbers, is not taken for one that is well.
driver answer dsm_emmc read -5
expect "no trigger for 29999, and it cannot be read: the driver keeps it" phone report dsm_emmc 29999 x
driver answer dsm_battery error -5 1
expect "the driver does not tell the error's number, *" phone report dsm_battery 10200 x
driver answer-text dsm_sdcard error 28101
expect "the driver tells 28101 in place of 28100, and the daemon goes by that" phone report dsm_sdcard 28100 x
driver answer dsm_ext4 read -5
expect "there is a trigger for 28200, but the driver still has it: *" phone report dsm_ext4 28200 x

# The log has times, tells clients whose names begin alike apart, and can be filtered as it comes.
expect "[0-1][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-5][0-9].??? E/DMD: *can't find client dsm_key's config." \
  phone log --client dsm_key
expect "phone: no client dsm_keyy; did you mean dsm_key?" phone log --client dsm_keyy
phone log -f --client dsm_battery > followed &
phone report --no-wait dsm_battery 1 x
wait_until grep -qs "dsm_battery has error (1) ignored" followed

# The daemon is killed, and starts again. Meanwhile the driver keeps what it has.
phone shell -- pkill -KILL -x dmd
expect "the daemon is not running; the driver keeps the error" phone report dsm_tp 20005 "while nobody looks"
expect "phone: the daemon is not running" phone command dsm_lcd on 1
wait_until logs "dsm_tp has error (20005) reported"
logs "phone: dmd was ended by signal 9, init starts it again in 5 s" || fail "a killed daemon is not told"

# The phone ends, also when nobody reads what it prints. What is lost with it is told; with --data nothing is.
kill -INT "$phone_pid"
wait "$phone_pid"
expect "130" echo $?
expect "phone: * reports discarded; --data DIR keeps them" tail -n 1 log
mkfifo unread
exec 7<> unread
env --default-signal=INT "$build/phone" boot --name "$name" > unread 2>&1 < /dev/null &
phone_pid=$!
wait_until phone report dsm_tp 20002 x > /dev/null 2>&1
phone report --count 500 dsm_tp 29999 x > /dev/null
kill -INT "$phone_pid"
wait "$phone_pid"
expect "130" echo $?
exec 7>&-
boot --data "$scratch/kept"
expect "reported: dmd_record_0.txt, *" phone report dsm_tp 20002 "to be kept"
end_phone
expect "1" grep -c "to be kept" kept/kvdx_logs/dmd_log/dmd_record_0.txt
expect "0" grep -c discarded log

# Reports for which there is no room, and a daemon that does nothing, are told.
boot --data-size 4K
is_full() { [[ $(phone report dsm_tp 20002 "too much") == *" is cut or l"*" - No space left on device"* ]]; }
wait_until is_full
end_phone
echo "[touch" > broken.conf
boot --config broken.conf
expect "the daemon could not read its configuration, and watches nothing; the driver keeps the error" \
  phone report dsm_tp 1 x
end_phone

# On a terminal the clients without a section have one line together.
script -qefc "'$build/phone' boot --name $name" screen < /dev/null > /dev/null 2>&1 &
phone_pid=$!
wait_until grep -qs "From another terminal" screen
expect "??-?? ??:??:??.??? * clients have no listen section; *" grep "no listen section" screen
expect "0" grep -c "can't find client" screen
end_phone
[ "$failures" -eq 0 ] || { echo "test-first-hour: $failures failures"; exit 1; }
