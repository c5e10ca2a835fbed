// What the processes of a phone have in common: they take signals one by one, pass them on, and wait for each
// other.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include "platform/owned.h"

namespace phone {

struct Pipe {
    UniqueFd read_end;
    UniqueFd write_end;
};

// Throws Refusal.
Pipe make_pipe();

// SIGCHLD, and the signals that mean the end and are passed on.
sigset_t watched_signals();

// From here on signals are taken one by one with sigwaitinfo.
void hold_signals();

// The mask that the process had before hold_signals; a command gets it back.
void restore_signals();

// Waits for the next signal. What somebody sent goes on to `receiver`; what the terminal sent has reached all
// processes of the foreground already, but for SIGHUP: a closed terminal tells the leader of its session
// only. Returns whether the signal means the end.
bool take_signal(pid_t receiver);

// To be called after the fork of `receiver`: what the terminal sent before is held here and nowhere else.
// What came in between `receiver` holds too, and holds once. Returns whether there was any.
bool forward_held_signals(pid_t receiver);

// The exit status of a wait status: 128 plus the signal if one ended the process.
int exit_status(int status);

}  // namespace phone
