// Bringing the daemon's subsystems up.
#pragma once

// Waits until the phone has booted, at most 60 tries of one second. Returns the number of the successful try,
// or 61 when the phone never said that it has.
int wait_for_boot_completion();

// Runs the start steps in order. At the first one that fails it logs that and leaves the rest out; what was
// started before goes on.
void run_start_steps();
