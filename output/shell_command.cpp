// Running commands through the shell.
#include "output/shell_command.h"

#include <fcntl.h>
#include <paths.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iterator>

#include "daemon/log.h"
#include "platform/mutex.h"

namespace {

// Write permission for the owner only, though the daemon's own umask is 0 from its first upload on.
constexpr mode_t COMMAND_UMASK = 022;

constexpr int STATUS_NO_SHELL = 127;

// What a command's group gets at its limit, a second apart: programs that clean up do so at the first.
constexpr int END_SIGNALS[] = {SIGTERM, SIGKILL};
constexpr int64_t SECOND_US = 1000000;

// The time between two looks at a command grows with its age, to an eighth of it: no system call waits for
// one process with a limit on every kernel.
constexpr int64_t NAP_MIN_US = 50;
constexpr int64_t NAP_MAX_US = 20000;

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
}

Mutex child_signal_mutex;
int commands_running GUARDED_BY(child_signal_mutex) = 0;
struct sigaction previous_disposition GUARDED_BY(child_signal_mutex) = {};

// While any thread runs a command, SIGCHLD has its default disposition; what it was comes back after the
// last.
void hold_child_signal() {
    const MutexLock lock(child_signal_mutex);
    if (commands_running++ == 0) {
        struct sigaction by_default = {};
        by_default.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &by_default, &previous_disposition);
    }
}

void release_child_signal() {
    const MutexLock lock(child_signal_mutex);
    if (--commands_running == 0) {
        sigaction(SIGCHLD, &previous_disposition, nullptr);
    }
}

int64_t now_us() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * SECOND_US + now.tv_nsec / 1000;
}

// The child's side: becomes the shell. Only calls that are safe in a copy of one thread.
[[noreturn]] void become_shell(const char* command, int output) {
    setpgid(0, 0);
    signal(SIGCHLD, SIG_DFL);
    umask(COMMAND_UMASK);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    if (output >= 0) {
        dup2(output, STDOUT_FILENO);
    }
    execl(_PATH_BSHELL, "sh", "-c", command, nullptr);
    _exit(STATUS_NO_SHELL);
}

}  // namespace

int run_command(const char* command) {
    return RunningCommand(command, RunningCommand::Output::SHARED).finish();
}

bool is_plain_name(const char* name) {
    return std::all_of(name, name + strlen(name), is_plain);
}

void make_plain_name(char* name) {
    std::replace_if(
        name, name + strlen(name), [](char c) { return !is_plain(c); }, '_');
}

RunningCommand::RunningCommand(const char* command, Output output, int limit_seconds)
    : command_(command), limit_seconds_(limit_seconds) {
    hold_child_signal();
    UniqueFd write_end;
    if (output == Output::PIPED) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        output_.reset(ends[0]);
        write_end.reset(ends[1]);
    }
    start_us_ = now_us();
    deadline_us_ = start_us_ + limit_seconds * SECOND_US;
    shell_ = fork();
    if (shell_ == 0) {
        become_shell(command, write_end.get());
    }
}

RunningCommand::~RunningCommand() {
    finish();
    release_child_signal();
}

bool RunningCommand::read_line(char* line, size_t size) {
    size_t length = 0;
    while (length + 1 < size && (length == 0 || line[length - 1] != '\n') &&
           (buffer_begin_ < buffer_end_ || fill_buffer())) {
        line[length++] = buffer_[buffer_begin_++];
    }
    line[length] = '\0';
    return length > 0;
}

int RunningCommand::finish() {
    output_.reset();  // what still writes learns that nobody reads
    for (look_after(); shell_ > 0; look_after()) {
        usleep(static_cast<useconds_t>(std::clamp((now_us() - start_us_) / 8, NAP_MIN_US, NAP_MAX_US)));
    }
    return status_;
}

// Takes the shell's status when it has ended, and sends its group the signal that is due.
void RunningCommand::look_after() {
    if (shell_ < 0) {
        return;
    }
    siginfo_t ended = {};
    // Its status stays for now, and its number its own. Where SIGCHLD is ignored meanwhile it may be lost.
    if (waitid(P_PID, static_cast<id_t>(shell_), &ended, WEXITED | WNOWAIT | WNOHANG) != 0) {
        shell_ = errno == EINTR ? shell_ : -1;
    } else if (ended.si_pid == shell_ && (signals_sent_ != 1 || now_us() >= deadline_us_)) {
        // After SIGTERM the programs have their second to clean up, though the shell ends at once.
        kill(-shell_, SIGKILL);
        waitpid(shell_, &status_, 0);
        shell_ = -1;
    } else if (now_us() >= deadline_us_) {
        if (signals_sent_ == 0) {
            LOG_M_AS("run_command", "ended after %d seconds: %s\n", limit_seconds_, command_);
        }
        deadline_us_ = now_us() + SECOND_US;
        if (signals_sent_ == static_cast<int>(std::size(END_SIGNALS))) {
            shell_ = -1;
            status_ = SIGKILL;
            return;
        }
        kill(-shell_, END_SIGNALS[signals_sent_++]);
    }
}

// Waits for output until there is some, or can be no more: the shell has ended and so has its group.
bool RunningCommand::fill_buffer() {
    ssize_t got = 0;
    for (bool last = false; !last;) {
        look_after();
        last = shell_ < 0;
        pollfd event = {output_.get(), POLLIN, 0};
        if (poll(&event, 1, last ? 0 : NAP_MAX_US / 1000) > 0) {
            got = read(output_.get(), buffer_, sizeof buffer_);
            last = got >= 0 || errno != EINTR;
        }
    }
    buffer_begin_ = 0;
    buffer_end_ = got > 0 ? static_cast<size_t>(got) : 0;
    return got > 0;
}
