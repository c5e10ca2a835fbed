#!/usr/bin/env bash
# Builds the daemon and shows the road of one error on emulated phones, first a debug build and then a commercial one.
# The debug build also shows a dump that an application asks for, a polled state, touch panel data by the volume keys,
# a memory image of the sensor hub, and what the tools make of it all. The demo ends by itself. The exit status is 0
# only if everything that it should show was there.
set -eu
cd -- "$(dirname -- "$(realpath -- "$0")")/.."
scripts/setup.sh
export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja} # of a new folder; one that is there keeps its own

build=build
work=build/demo
name=demo-$$
failed=0
phone_pid=
panel_log=/sys/bus/platform/devices/qelvan_touch/loglevel

bold='' plain=''
[ ! -t 1 ] || bold=$'\033[1m' plain=$'\033[0m'

say() { printf '\n%s== %s%s\n' "$bold" "$*" "$plain"; }
missing() { printf 'MISSING: %s\n' "$*"; failed=1; }
phone() { "$build/phone" "$@"; }
in_phone() { phone shell --name "$name" -- "$@"; }

end_phone() {
  [ -z "$phone_pid" ] || { kill "$phone_pid" 2> /dev/null; wait "$phone_pid" 2> /dev/null; } || true
  phone_pid=
}
trap end_phone EXIT

wait_for_log() { # TEXT TIMES [FILE]: waits up to five minutes until the log has the text that often
  local tries=0
  until [ "$(grep -c -F -- "$1" "${3:-$log}")" -ge "$2" ]; do
    tries=$((tries + 1))
    if [ $tries -ge 3000 ] || ! kill -0 "$phone_pid" 2> /dev/null; then
      missing "$1"
      tail -n 5 "$log"
      exit 1
    fi
    sleep 0.1
  done
}

show() { # WHAT FILE: shows a file that must not be empty
  say "$1 ($2)"
  if [ -s "$2" ]; then cat "$2" && echo; else missing "$2"; fi
}

boot() { # KIND OPTION: boots a phone
  data=$work/$1
  log=$work/$1.log
  reports=$data/kvdx_logs/dmd_log
  rm -rf "$data" "$log"
  mkdir -p "$data/android_logs"
  echo "<6>[   12.345678] touch: irq 17 without data" > "$data/android_logs/kmsgcat-log"
  : > "$log"
  # The sample configuration, with one change: dmd asks the fuel gauge for its state every 5 seconds, not every minute.
  sed 's/^sampling_period 12$/sampling_period 1/' config/device_state_monitor.conf > "$work/demo.conf"
  say "Booting a $1 build, the fuel gauge polled every 5 seconds; the daemon's log goes to $log"
  "$build/phone" boot --name "$name" "$2" --config "$work/demo.conf" --data "$data" > "$log" 2>&1 < /dev/null 9>&- &
  phone_pid=$!
  wait_for_log "[M/listen_server] Enter select" 1
  wait_for_log "[M/dmd_command_sever_init] command server init success" 1
  grep "default-client total: .* ret = 0" "$log" || missing "all clients in $log"
}

report() { # TIMES TEXT: the driver of dsm_tp reports error 20002, and the daemon deals with it. TIMES counts the errors
  say "The driver of dsm_tp reports error 20002: $2"
  phone report --name "$name" dsm_tp 20002 "$2" | tee "$work/outcome"
  expect_in "$work/outcome" "reported: dmd_record_0.txt"
  wait_for_log "[M/listen_server] Enter select" $(($1 + 1))
  expect_in "$log" "[M/listen_server] dsm_tp has error (20002) reported"
  grep -F "[M/listen_server] dsm_tp has error (20002) reported" "$log" | tail -n 1
}

wait_for_report() { # CLIENT ERROR: waits until the forced dump is in the record and its archive is announced
  wait_for_log "[M/dsm_force_dump_error] $1 finish dump" 1
  wait_for_log "cmd_line:archive -i /data/kvdx_logs/dmd_log/dmd_dump_$(printf %05d "$2")_" 1
}

show_report() { # CLIENT ERROR: shows the forced dump
  say "Its report in the record file"
  awk -v number="[Error no]:$(printf %02d "$2")" '
    /^=+Device Bugreport=+$/ { report = ""; found = 0 }
    { report = report $0 "\n" } $0 == number { found = 1 }
    found && /^forced dump of / { printf "%s", report; exit }' "$reports/dmd_record_0.txt" | tee "$work/report"
  expect_in "$work/report" "[Device]:$1"
  expect_in "$work/report" "forced dump of error $2 of $1"
}

expect_in() { # FILE TEXT
  grep -q -F -- "$2" "$1" || missing "\"$2\" in $1"
}

show_line() { # FILE TEXT: shows the lines that contain the text
  grep -F -- "$2" "$1" || missing "\"$2\" in $1"
}

show_archive() { # ERROR: lists its archive
  local archive
  archive=$(ls "$reports/dmd_dump_$1"_??????.tar.gz 2> /dev/null || true)
  say "The dump archive, listed by the system's tar ($archive)"
  if [ -n "$archive" ] && tar -tvzf "$archive" > "$work/listing"; then
    cat "$work/listing"
    expect_in "$work/listing" data/kvdx_logs/dmd_log/dmd_record_0.txt
    expect_in "$work/listing" data/android_logs/kmsgcat-log
  else
    missing "a readable dump archive of error $1"
  fi
}

show_dump() { # ERROR: unpacks its standalone dump into $work/dump and shows the beginning
  local dump
  dump=$(ls "$reports/dmd_dump_$1"_??????.txt.gz 2> /dev/null || true)
  say "The compressed dump ($dump)"
  : > "$work/dump"
  if [ -n "$dump" ] && gzip -dc "$dump" > "$work/dump"; then
    head -n 20 "$work/dump"
  else
    missing "a readable dump of error $1"
  fi
}

press() { # KEY...: presses a combination, and again if the machine was too slow for it
  local before tries=0
  before=$(grep -c -F "dmd_key_dispatch combination_key:" "$log" || true)
  while [ $tries -lt 5 ]; do
    phone key --name "$name" "$@"
    for _ in $(seq 100); do
      [ "$(grep -c -F "dmd_key_dispatch combination_key:" "$log")" -le "$before" ] || return 0
      sleep 0.1
    done
    tries=$((tries + 1))
  done
  missing "the key combination $*"
}

expect_file() { # FILE CONTENT: shows a file of the phone, which must have that content
  local content
  content=$(in_phone cat "$1" || true)
  printf '%s: %s\n' "$1" "$content"
  [ "$content" = "$2" ] || missing "$2 in $1"
}

show_settings() { # VALUE: shows the last three settings, which must set the touch panel's to this value
  grep "^settings " "$data/commands.log" | tail -n 3 | tee "$work/settings"
  local name
  for name in show_touches pointer_location haptic_feedback_enabled; do
    expect_in "$work/settings" "settings put system $name $1"
  done
}

show_upload() { # shows the description of the latest upload
  show "The upload description" "$reports/apr_info.txt"
  expect_in "$reports/apr_info.txt" "device_name	touch_panel"
  expect_in "$reports/apr_info.txt" "error_no	20002"
}

say "Building in $build (the first time takes a minute)"
mkdir -p "$build" "$work"
exec 9> build/lock
flock -n 9 || { echo "demo: another test or demo of this checkout is running" >&2; exit 1; }
{ cmake -S . -B "$build" && cmake --build "$build" -j "$(nproc)"; } > $build/build.log 2>&1 ||
  { tail -n 40 $build/build.log; exit 1; }

say "What the configuration makes the daemon do about the touch panel (dmd-config-check)"
"$build/dmd-config-check" config/device_state_monitor.conf > "$work/checked" || missing "a clean configuration"
sed -n '/^\[touch\]/,/^$/{/./p}' "$work/checked"
expect_in "$work/checked" "client   dsm_tp, listened to"

boot debug --debug-build
report 1 "touch controller does not answer"
show "The bug report in the record file" "$reports/dmd_record_0.txt"
expect_in "$reports/dmd_record_0.txt" "[Error no]:20002"
expect_in "$reports/dmd_record_0.txt" "touch controller does not answer"
show_archive 20002
show_upload
say "The exception log entry"
in_phone cat /dev/log/exception | tee "$work/exception"
expect_in "$work/exception" "archive -i /data/kvdx_logs/dmd_log/dmd_dump_20002_"

say "It reports an error that the configuration has no trigger for, and a driver without a section reports another"
phone report --name "$name" dsm_tp 29999 "unknown to the configuration" | tee "$work/outcome"
expect_in "$work/outcome" "no trigger for 29999: cleared"
phone report --name "$name" dsm_key 1 "unheard" | tee "$work/outcome"
expect_in "$work/outcome" "dsm_key has no listen section: nobody reads it"

say "An application asks over the command socket for a dump of dsm_lcd, as error 20100"
phone command --name "$name" dsm_lcd on 20100
wait_for_report dsm_lcd 20100
show_line "$log" "[M/dmd_recv_cmd_from_apk] Received msg - name:dsm_lcd data:20100"
show_report dsm_lcd 20100

say "The fuel gauge reaches state 1, and dmd asks for it every 5 seconds"
phone state --name "$name" dsm_pmu_coul 1
wait_for_report dsm_pmu_coul 1
phone state --name "$name" --no-wait dsm_pmu_coul 0
grep -F "[M/poll_server] " "$log" | tail -n 3
show_report dsm_pmu_coul 1

say "A tester holds volume down and presses volume up twice: the touch panel's debug cycle is armed"
press down+ up up down-
wait_for_log "settings put system haptic_feedback_enabled 1" 1 "$data/commands.log"
show_settings 1
say "The same keys again: touch panel data is collected, and the panel's logs are switched on"
press down+ up up down-
wait_for_log "cmd_line:archive -i /data/kvdx_logs/dmd_log/dmd_dump_20005_" 1
show_dump 20005
for part in "RawImage 4x8" "DiffImage 4x8" "USB insert state is:1" "CHARGER insert state is:0"; do
  expect_in "$work/dump" "$part"
done
expect_file "$panel_log" 1
say "Volume up, up, down: all is switched off again"
press up up down
wait_for_log "settings put system haptic_feedback_enabled 0" 1 "$data/commands.log"
show_settings 0
expect_file "$panel_log" 0
expect_file /sys/class/timed_output/vibrator/enable 500

say "The driver of dsm_sensorhub reports error 20500; its memory image takes 10 seconds"
phone report --name "$name" dsm_sensorhub 20500 "sensor hub does not answer"
wait_for_log "[M/listen_server] Enter select" 4
show_archive 20500
show_dump 20500
if ! cmp "$work/dump" "$data"/ruvo_logs/memorydump/*/rdr.bin; then missing "the memory image in the dump"; fi
end_phone

say "All that this phone leaves, read on the desk (dmd-report)"
"$build/dmd-report" "$reports"
"$build/dmd-report" "$reports" > "$work/table"
for report in "touch_panel	20002	on" "dsm_lcd	20100	on" "dsm_pmu_coul	1	off" "sensorhub	20500	off"; do
  expect_in "$work/table" "$report"
done
"$build/dmd-report" --summary "$reports"
"$build/dmd-report" --html "$work/reports.html" "$reports" || missing "a page of all reports"
expect_in "$work/reports.html" "touch controller does not answer"
say "The same as a page with a timeline: $work/reports.html"

boot commercial --commercial
# Once the daemon has announced the commercial record, it removes it with the phone's rm. So this phone's rm first keeps
# a copy of what it removes.
in_phone sh -c 'printf "#!/bin/sh\ncat \"\$1\" >> /data/removed\nexec /bin/rm \"\$1\"\n" > /system/bin/rm && chmod 755 /system/bin/rm'
report 1 "touch controller does not answer"
report 2 "touch controller does not answer again"
show "Both reports in the rolling record" "$reports/dmd_record_0.txt"
[ "$(grep -c -F "[Error no]:20002" "$reports/dmd_record_0.txt")" -eq 2 ] || missing "two reports in the record"
show "The commercial record: made once a day for each error number" "$data/removed"
[ "$(grep -c -F "[Error no]:20002" "$data/removed")" -eq 1 ] || missing "exactly one commercial record"
[ ! -e "$reports/dmd_commercial_record.txt" ] || missing "the end of the commercial record"
say "The exception log entry"
in_phone cat /dev/log/exception | tee "$work/exception"
[ "$(grep -c -F "archive -i /data/kvdx_logs/dmd_log/dmd_commercial_record.txt" "$work/exception")" -eq 1 ] ||
  missing "exactly one upload request for the commercial record"
show_upload
say "The output directory: no archive on a commercial build"
ls "$reports"
if ls "$reports"/dmd_dump_* > /dev/null 2>&1; then
  printf 'UNEXPECTED: an archive\n'
  failed=1
fi
end_phone

if [ "$failed" -eq 0 ]; then
  say "Everything was there. The reports stay in $work"
else
  say "Something is missing, see above"
fi
exit "$failed"
