// Bringing the daemon's subsystems up.
#pragma once

// Waits until the phone has booted, at most 60 tries of one second. Returns the number of the successful try,
// or 61 when the phone never said that it has.
int wait_for_boot_completion();

// Runs the start steps in order. Logs the first one that fails and leaves out the rest; what has started goes
// on.
void run_start_steps();
