// Running the phone's commands through its shell. Everything in a command must be the daemon's own text or
// have passed is_plain_name.
#pragma once

#include <sys/types.h>

#include <cstdio>

// Most seconds that a command may take: then it is killed, and a message says so. Whatever it started in
// its process group and left running is killed too, as when it ends by itself. A phone in trouble has
// commands that never end, and the thread that waits for one holds locks that all reports need.
constexpr int COMMAND_LIMIT_SECONDS = 300;

// Runs a command, with the default disposition of SIGCHLD meanwhile, so that its status can be had. Returns
// what `system` would: the status as waitpid gives it, that of SIGALRM for a command that took too long, or
// -1 when none could be started, errno telling why. The files that the command makes are writable for their
// owner only.
int run_command(const char* command);

// Whether a file name consists of letters, digits, '.', '_' and '-' only, so that no shell interprets it.
bool is_plain_name(const char* name);

// Puts '_' in place of every other character of a name.
void make_plain_name(char* name);

// Gives SIGCHLD its default disposition while any thread runs a command; what it was comes back after the
// last.
class DefaultChildSignal {
  public:
    DefaultChildSignal();
    ~DefaultChildSignal();
    DefaultChildSignal(const DefaultChildSignal&) = delete;
    DefaultChildSignal& operator=(const DefaultChildSignal&) = delete;
};

// A command whose standard output is read, as through `popen`. It has ended when this is destroyed.
class CommandOutput {
  public:
    explicit CommandOutput(const char* command);
    ~CommandOutput();
    CommandOutput(const CommandOutput&) = delete;
    CommandOutput& operator=(const CommandOutput&) = delete;

    // Null when the command could not be started.
    FILE* stream() const { return stream_; }

  private:
    const DefaultChildSignal signal_;
    const char* command_;  // the caller's
    FILE* stream_ = nullptr;
    pid_t leader_ = -1;
};
