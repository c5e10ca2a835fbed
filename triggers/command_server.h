// The command server: applications ask over a local socket for a dump (command_message.h).
#pragma once

#include <sys/types.h>

// Creates the socket and starts the thread that serves it for the life of the process. Called once, after the
// registry stands. 0, or -22 after a message when any of it failed.
int dmd_command_sever_init();

// Entry of the command thread; its argument is not used. Returns only when select fails.
void* dmd_cmd_thread(void* argument);

// Takes one message from a readable connection and runs the dump that it asks for, on the calling thread. The
// connection stays open. Returns what recv returned: the bytes taken, 0 when the peer has closed, or -1.
ssize_t dmd_recv_cmd_from_apk(int connection);
