// The head of a bug report.
#pragma once

#include "output/error_info.h"

// Halves of the kind of a head: which head, and which record it is written to.
constexpr unsigned int HEAD_SHORT = 2;
constexpr unsigned int HEAD_FULL = 4;  // with a snapshot of the busiest processes; any other value: no head
constexpr unsigned int HEAD_COMMERCIAL_RECORD = 0x10000;
constexpr unsigned int HEAD_ROLLING_RECORD = 0x20000;

// Writes a bug report head of the given kind to fd and syncs it. Always 0: a head that could not be written
// does not keep the report from being written.
int bug_head_write(int fd, const dmd_error_info* info, unsigned int kind);

// Copies a snapshot of the busiest processes to fd, without its empty lines. A snapshot that cannot be taken
// is logged and left out.
void process_stat_write(int fd);
