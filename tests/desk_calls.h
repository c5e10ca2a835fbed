// Calls of the C library that the test binary answers itself, to count them.
#pragma once

#include <cstdint>
#include <functional>

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

// The next call of select to return fails, also one that waits now.
void fail_next_select();

// Files that this process has synced so far.
int files_synced();

// Runs something on a thread of its own, for which the kernel starts no process: fork fails with EAGAIN.
void run_without_processes(const std::function<void()>& run);
