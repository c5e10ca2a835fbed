// Running commands through the shell.
#include "output/shell_command.h"

#include <fcntl.h>
#include <paths.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <iterator>

#include "daemon/log.h"
#include "platform/mutex.h"
#include "platform/text.h"

namespace {

// Write permission for the owner only, though the daemon's own umask is 0 from its first upload on. A spawned
// process can be given none, and the daemon's other threads are not to have this one even for a moment.
constexpr char COMMAND_UMASK[] = "umask 022; ";

// The status of a shell that cannot be run, as of one that cannot run its command.
constexpr int STATUS_NO_SHELL = 127 << 8;

// What a killed command may take to end. One that no signal ends, stuck in a driver, is left to itself.
constexpr int KILL_LIMIT_MS = 1000;

// Longest time between two looks at a shell whose end cannot be waited for.
constexpr int NAP_MAX_MS = 20;

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
}

Mutex child_signal_mutex;
int commands_running GUARDED_BY(child_signal_mutex) = 0;
struct sigaction previous_disposition GUARDED_BY(child_signal_mutex) = {};

// The shells that were left to themselves. More of them than this stay until the daemon ends.
Mutex left_shells_mutex;
pid_t left_shells[16] GUARDED_BY(left_shells_mutex) = {};

void leave_shell(pid_t shell) {
    const MutexLock lock(left_shells_mutex);
    pid_t* const free_place = std::find(std::begin(left_shells), std::end(left_shells), 0);
    if (free_place != std::end(left_shells)) {
        *free_place = shell;
    }
}

// Fetches the status of those that have ended meanwhile, so that the system forgets them.
void reap_left_shells() {
    const MutexLock lock(left_shells_mutex);
    for (pid_t& shell : left_shells) {
        if (shell != 0 && waitpid(shell, nullptr, WNOHANG) != 0) {
            shell = 0;
        }
    }
}

int64_t now_ms() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// What a new shell differs in from the daemon: a process group of its own, the default disposition of
// SIGCHLD, and its standard output unless that is negative.
class ShellSetup {
  public:
    explicit ShellSetup(int output) {
        error = posix_spawn_file_actions_init(&actions);
        has_actions_ = error == 0;
        if (has_actions_) {
            error = posix_spawnattr_init(&attributes);
            has_attributes_ = error == 0;
        }
        if (error != 0) {
            return;
        }
        if (output >= 0) {
            error = posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        }
        sigset_t child_signal;
        sigemptyset(&child_signal);
        sigaddset(&child_signal, SIGCHLD);
        posix_spawnattr_setsigdefault(&attributes, &child_signal);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
    }
    ~ShellSetup() {
        if (has_actions_) {
            posix_spawn_file_actions_destroy(&actions);
        }
        if (has_attributes_) {
            posix_spawnattr_destroy(&attributes);
        }
    }
    ShellSetup(const ShellSetup&) = delete;
    ShellSetup& operator=(const ShellSetup&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    int error;

  private:
    bool has_actions_ = false;
    bool has_attributes_ = false;
};

// Starts a shell that runs the command. Its number, or -1 with errno set. The daemon is spawned from, not
// forked: copying its page tables costs more than the rest. (A daemon that is killed leaves its command
// without a limit; on a phone, init ends what a service has left.)
pid_t start_shell(const char* command, int output) {
    char line[sizeof COMMAND_UMASK + MAX_COMMAND_LENGTH];
    if (strlen(command) > MAX_COMMAND_LENGTH) {
        errno = E2BIG;
        return -1;
    }
    format_text(line, sizeof line, "%s%s", COMMAND_UMASK, command);
    char shell[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {shell, option, line, nullptr};
    const ShellSetup setup(output);
    int error = setup.error;
    pid_t pid = -1;
    if (error == 0) {
        error = posix_spawn(&pid, _PATH_BSHELL, &setup.actions, &setup.attributes, arguments, environ);
    }
    errno = error;
    return error == 0 ? pid : -1;
}

// A descriptor that can be read once the process has ended; invalid on kernels before 5.3, and without
// descriptors.
UniqueFd open_end_event(pid_t pid) {
#ifdef SYS_pidfd_open
    return UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
#else
    static_cast<void>(pid);
    return UniqueFd();
#endif
}

enum class ChildState { RUNNING, ENDED, LOST };

// Its status stays to be fetched, and its number its own. It is lost where others wait for this process's
// children, or have SIGCHLD ignored meanwhile.
ChildState state_of(pid_t child) {
    siginfo_t info = {};
    if (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT | WNOHANG) != 0) {
        return errno == ECHILD ? ChildState::LOST : ChildState::RUNNING;
    }
    return info.si_pid == child ? ChildState::ENDED : ChildState::RUNNING;
}

}  // namespace

DefaultChildSignal::DefaultChildSignal() {
    const MutexLock lock(child_signal_mutex);
    if (commands_running++ == 0) {
        struct sigaction by_default = {};
        by_default.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &by_default, &previous_disposition);
    }
}

DefaultChildSignal::~DefaultChildSignal() {
    const MutexLock lock(child_signal_mutex);
    if (--commands_running == 0) {
        sigaction(SIGCHLD, &previous_disposition, nullptr);
    }
}

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

RunningCommand::RunningCommand(const char* command, Output output) : command_(command) {
    UniqueFd write_end;
    if (output == Output::PIPED) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        output_.reset(ends[0]);
        write_end.reset(ends[1]);
    }
    reap_left_shells();
    shell_ = start_shell(command, write_end.get());
    if (shell_ > 0) {
        end_event_ = open_end_event(shell_);
        deadline_ms_ = now_ms() + COMMAND_LIMIT_SECONDS * 1000;
        given_up_ = false;
        return;
    }
    const bool no_process = errno == EAGAIN || errno == ENOMEM || errno == E2BIG;
    status_ = no_process ? -1 : STATUS_NO_SHELL;
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
    if (shell_ < 0) {
        return status_;
    }
    nap_ms_ = 1;  // most end with their output
    while (!ended_ && !given_up_) {
        wait_for_event(false);
    }
    if (ended_ && !lost_) {
        while (waitpid(shell_, &status_, 0) < 0 && errno == EINTR) {
        }
    } else if (!ended_) {
        leave_shell(shell_);
    }
    if (expired_) {
        LOG_M_AS("run_command", "killed after %d seconds: %s\n", COMMAND_LIMIT_SECONDS, command_);
        status_ = SIGALRM;
    }
    shell_ = -1;
    given_up_ = true;
    return status_;
}

// Waits until the shell has ended, or `with_output` until there is some. What a command has left running when
// its shell ends, and everything of it at its limit, is killed: it would hold the output open.
void RunningCommand::wait_for_event(bool with_output) {
    const bool naps = !ended_ && !end_event_.valid();
    const auto left_ms = static_cast<int>(std::max<int64_t>(0, deadline_ms_ - now_ms()));
    const int limit_ms = naps ? std::min(nap_ms_, left_ms) : left_ms;
    nap_ms_ = std::min(nap_ms_ * 2, NAP_MAX_MS);
    pollfd events[] = {{ended_ ? -1 : end_event_.get(), POLLIN, 0},
                       {with_output ? output_.get() : -1, POLLIN, 0}};
    const int ready = poll(events, std::size(events), limit_ms);
    if (ready < 0) {
        usleep(1000);  // interrupted, or short of memory: that is no reason to spin
    }
    output_ready_ = ready > 0 && events[1].revents != 0;
    const bool may_have_ended = !ended_ && (naps || events[0].revents != 0);
    const ChildState state = may_have_ended ? state_of(shell_) : ChildState::RUNNING;
    const bool at_limit = ready == 0 ? limit_ms == left_ms : now_ms() >= deadline_ms_;
    if (state == ChildState::ENDED) {
        ended_ = true;
        kill_group();
    } else if (state == ChildState::LOST) {
        ended_ = true;
        lost_ = true;  // its number may be another's by now
    } else if (at_limit && (ended_ || expired_)) {
        given_up_ = true;
    } else if (at_limit) {
        expired_ = true;
        deadline_ms_ = now_ms() + KILL_LIMIT_MS;
        nap_ms_ = 1;
        kill_group();
    } else if (may_have_ended) {
        end_event_.reset();  // who traces it has its end first: from now on it is looked for
    }
}

bool RunningCommand::fill_buffer() {
    while (!output_ready_ && !given_up_) {
        wait_for_event(true);
    }
    if (!output_ready_) {
        return false;
    }
    ssize_t got;
    do {
        got = read(output_.get(), buffer_, sizeof buffer_);
    } while (got < 0 && errno == EINTR);
    output_ready_ = false;
    buffer_begin_ = 0;
    buffer_end_ = got > 0 ? static_cast<size_t>(got) : 0;
    return got > 0;
}

void RunningCommand::kill_group() const {
    kill(-shell_, SIGKILL);
}
