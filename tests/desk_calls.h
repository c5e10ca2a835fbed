// Calls of the C library that the test binary answers itself, to count them.
#pragma once

#include <cstdint>

// Seconds that this process has asked to sleep, or has waited in select to no avail, so far: the daemon's
// waits cost the tests no time.
unsigned int seconds_slept();

// From now on each call of sleep waits until the test lets it return.
void hold_sleeps();
// Lets one call of sleep return, also one that is still to come.
void let_a_sleep_pass();

// A command that makes this file hangs: five minutes pass at once on the clock of the daemon's code.
constexpr char HANGS[] = "/data/hangs";

// From now on the daemon's clock shows this, until the test sets it anew.
void hold_clock(int64_t milliseconds);

// Files that this process has synced so far.
int files_synced();
