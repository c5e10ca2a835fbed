// Calls of the C library that the test binary answers itself, to count them.
#pragma once

// Seconds that this process has asked to sleep, or to wait in select at most, so far: the daemon's waits cost
// the tests no time.
unsigned int seconds_slept();

// Files that this process has synced so far.
int files_synced();
