// Running the phone's commands through its shell. Everything in a command must be the daemon's own text or
// have passed is_plain_name.
#pragma once

// Most seconds that a command may take unless told otherwise. A phone in trouble has commands that never end,
// and the thread that waits for one holds locks that all reports need.
constexpr int COMMAND_LIMIT_SECONDS = 300;

// Runs a command to its end, in a process group of its own, with the default disposition of SIGCHLD
// meanwhile, so that its status can be had. Its input is /dev/null, its output goes to the descriptor
// `output`, or to the daemon's where that is negative, and the files that it makes are writable for their
// owner only.
//
// At its limit, after a message, the process group gets SIGTERM, and SIGKILL a second later. Processes of the
// group that outlive the shell are killed. A shell that survives SIGKILL for a second is stuck in a driver;
// it is left behind, a child of the daemon.
//
// Returns what `system` would: the status as waitpid gives it, that of exit(127) without a shell, or -1 when
// none could be started or something else took its status, errno telling why.
int run_command(const char* command, int limit_seconds = COMMAND_LIMIT_SECONDS, int output = -1);

// As run_command, after a message that shows the command.
int secure_system(const char* command);

// Removes the file at `path` by a command. Returns the command's status.
int remove_by_command(const char* path);

// Whether a file name consists of letters, digits, '.', '_' and '-' only, so that no shell interprets it.
bool is_plain_name(const char* name);

// Puts '_' in place of every other character of a name.
void make_plain_name(char* name);
