// Dump operations of clients whose reports carry the logs of their own part of the phone: all are
// log_collection_action with a list of their own. Each returns 0, or -1 on a null argument or no memory.
#pragma once

#include "clients/client.h"

// What they pack: lists of paths, separated by blanks. The log of the recovery system is below the daemon's
// working directory.
constexpr char CHARGE_LOGS[] = "/data/android_logs/charge-log.1 /data/android_logs/charge-log";
constexpr char CHARGE_MONITOR_LOGS[] = "/data/kvdx_logs/charge_monitor/";
constexpr char RECOVERY_LOG[] = "splash2/recovery_log";
constexpr char TOMBSTONES[] = "/data/tombstones/";

// The error numbers that a crash may have caused.
constexpr int CRASH_ERRORS[] = {20834, 20837};

// The charge logs, for the charger and battery clients.
int charge_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// The folder of the charge monitor.
int charge_monitor_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// The log of the recovery system.
int recovery_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// The tombstones, for the CRASH_ERRORS.
int apcp_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// A record with the short head, and no archive.
int power_key_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// What the generic operation does, in place of the sensor hub's dump with its memory image.
int sensorhub_dump_error_no_image(dmd_client* client, int error_no, const char* RT_switch);
