// The clock that neither the user nor the network sets.
#pragma once

#include <cstdint>
#include <ctime>

// Microseconds since some moment before the daemon's start. Any thread.
inline int64_t monotonic_us() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}
