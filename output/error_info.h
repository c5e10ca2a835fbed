// The description of one dumped error, filled by every dump operation for report output.
#pragma once

#include <cstdint>
#include <ctime>

struct dmd_error_info {
    char device_name[32];         // terminated text
    char ic_name[4];              // text; no terminator when it fills the field: print with "%.4s"
    char module_name[4];          // as ic_name
    char running_test_switch[4];  // as ic_name
    int32_t time;                 // seconds since the epoch when the dump was taken
    int32_t error_no;             // the error number being reported
};

static_assert(sizeof(dmd_error_info) == 52, "a description is the same on a phone and on a desk");

// Breaks seconds since the epoch down in the phone's time zone, also after the zone has changed. Any thread.
tm local_time(int32_t seconds);
