// Running the phone's commands through its shell. Everything in a command must be the daemon's own text or
// have passed is_plain_name.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "platform/owned.h"

// Most seconds that a command may take: then it is killed, and a message says so. Whatever it started in
// its process group and left running is killed too, as when it ends by itself. A phone in trouble has
// commands that never end, and the thread that waits for one holds locks that all reports need.
constexpr int COMMAND_LIMIT_SECONDS = 300;

// Longest text of a command, in characters.
constexpr size_t MAX_COMMAND_LENGTH = 1000;

// Runs a command, with the default disposition of SIGCHLD meanwhile, so that its status can be had. Returns
// what `system` would: the status as waitpid gives it, that of SIGALRM for a command that took too long, that
// of exit(127) without a shell, or -1 when none could be started or something else took its status, errno
// telling why. The files that the command makes are writable for their owner only.
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

// A command at work, in a process group of its own. When this is destroyed it has ended and what is left of
// the group is killed, unless it is stuck in the kernel or something else took its status.
class RunningCommand {
  public:
    enum class Output { SHARED, PIPED };  // with the daemon's standard output, or to read_line

    // Starts it. The text is the caller's, of at most MAX_COMMAND_LENGTH characters, and stays until this is
    // destroyed.
    RunningCommand(const char* command, Output output);
    ~RunningCommand() { finish(); }
    RunningCommand(const RunningCommand&) = delete;
    RunningCommand& operator=(const RunningCommand&) = delete;

    // False when it could not be started, errno telling why. For before it is finished.
    bool started() const { return shell_ > 0 || status_ >= 0; }

    // Reads the next line of the output with its line feed, or as much of it as the `size` bytes at `line`
    // take, as `fgets` does. False when there is no more.
    bool read_line(char* line, size_t size);

    // Waits until it has ended. Returns as run_command does.
    int finish();

  private:
    void wait_for_event(bool with_output);
    bool fill_buffer();
    void kill_group() const;

    const DefaultChildSignal signal_;
    const char* const command_;
    pid_t shell_ = -1;    // its group has the same number; negative when it is not there or its status is
    UniqueFd end_event_;  // can be read once the shell has ended; invalid where the kernel has no such thing
    UniqueFd output_;     // the pipe that the command writes to
    bool output_ready_ = false;  // to be read
    bool ended_ = false;         // the shell has
    bool lost_ = false;          // and its status with it
    bool expired_ = false;       // killed at the limit
    bool given_up_ = true;       // nothing is waited for, or nothing more
    int status_ = -1;            // of the shell, once it was waited for
    int64_t deadline_ms_ = 0;    // of the clock that counts on
    int nap_ms_ = 1;             // until the next look at a shell without end_event_
    char buffer_[1024];
    size_t buffer_begin_ = 0;
    size_t buffer_end_ = 0;
};
