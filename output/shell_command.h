// Running the phone's commands through its shell. Everything in a command must be the daemon's own text or
// have passed is_plain_name.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "platform/owned.h"

// Most seconds that a command may take. A phone in trouble has commands that never end, and the thread that
// waits for one holds locks that all reports need.
constexpr int COMMAND_LIMIT_SECONDS = 300;

// Runs a command, with the default disposition of SIGCHLD meanwhile, so that its status can be had. Returns
// what `system` would: the status as waitpid gives it, that of exit(127) without a shell, or -1 when none
// could be started or something else took its status, errno telling why. Its input is /dev/null, and the
// files that it makes are writable for their owner only.
int run_command(const char* command);

// Whether a file name consists of letters, digits, '.', '_' and '-' only, so that no shell interprets it.
bool is_plain_name(const char* name);

// Puts '_' in place of every other character of a name.
void make_plain_name(char* name);

// A command at work, in a process group of its own. At its limit the group gets SIGTERM, with a message, and
// SIGKILL a second later. What is left of the group when the shell ends by itself is killed.
class RunningCommand {
  public:
    enum class Output { SHARED, PIPED };  // with the daemon's standard output, or to read_line

    // Starts it. The text is the caller's and stays until this is destroyed.
    RunningCommand(const char* command, Output output, int limit_seconds = COMMAND_LIMIT_SECONDS);
    ~RunningCommand();
    RunningCommand(const RunningCommand&) = delete;
    RunningCommand& operator=(const RunningCommand&) = delete;

    // False when it could not be started, errno telling why. For before it is finished.
    bool started() const { return shell_ > 0; }

    // Reads the next line of the output with its line feed, or as much of it as the `size` bytes at `line`
    // take, as `fgets` does. False when there is no more.
    bool read_line(char* line, size_t size);

    // Waits until it has ended. Returns as run_command does. A shell that not even SIGKILL ended within a
    // second is stuck in a driver: it is left to itself, and counts as ended.
    int finish();

  private:
    void look_after();
    bool fill_buffer();

    const char* const command_;
    const int limit_seconds_;
    pid_t shell_ = -1;         // its group has the same number; negative once nothing is waited for
    int status_ = -1;          // of the shell, once it was waited for
    int64_t start_us_ = 0;     // of the clock that counts on
    int64_t deadline_us_ = 0;  // when the group gets its next signal
    int signals_sent_ = 0;
    UniqueFd output_;  // the pipe that the command writes to
    char buffer_[1024];
    size_t buffer_begin_ = 0;
    size_t buffer_end_ = 0;
};
