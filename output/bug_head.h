// The head of a bug report.
#pragma once

#include "output/error_info.h"

// The texts of a head, in order. A label stands in front of its value, on a line of its own. A short head has
// no HEAD_PROCESSES.
constexpr char HEAD_TITLE[] = "\n========Device Bugreport========\n";
constexpr char HEAD_DATE[] = "[Date]:";
constexpr char HEAD_TIME[] = "[Time]:";
constexpr char HEAD_DEVICE[] = "[Device]:";
constexpr char HEAD_ERROR_NO[] = "[Error no]:";
constexpr char HEAD_TEST_SWITCH[] = "[Runing_test_switch]:";
constexpr char HEAD_PROCESSES[] = "[Temperature]:null\n[Process]:\n";
constexpr char HEAD_CONTENT[] = "[Content]:\n";

// The kind of a head joins one of each: its length, and the record that it is written to.
constexpr unsigned int HEAD_SHORT = 2;
constexpr unsigned int HEAD_FULL = 4;  // with a snapshot of the busiest processes; any other value: no head
constexpr unsigned int HEAD_COMMERCIAL_RECORD = 0x10000;
constexpr unsigned int HEAD_ROLLING_RECORD = 0x20000;

// Writes a bug report head of the given kind to fd, the file at `path`, and syncs it. Logs each part that is
// cut or lost. Always 0: the report is written even if its head cannot be.
int bug_head_write(int fd, const dmd_error_info* info, unsigned int kind, const char* path);

// Copies a snapshot of the busiest processes to fd, the file at `path`, without its empty lines. Logs a
// snapshot that cannot be taken, or is cut.
void process_stat_write(int fd, const char* path);
