// Running commands through the shell.
#include "output/shell_command.h"

#include <fcntl.h>
#include <paths.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "daemon/log.h"
#include "platform/mutex.h"
#include "platform/owned.h"

namespace {

constexpr int STATUS_NO_SHELL = 127;

// Write permission for the owner only, though the daemon's own umask is 0 from its first upload on.
constexpr mode_t COMMAND_UMASK = 022;

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
}

Mutex child_signal_mutex;
int commands_running GUARDED_BY(child_signal_mutex) = 0;
struct sigaction previous_disposition GUARDED_BY(child_signal_mutex) = {};

// Lets go of the daemon's descriptors: a pipe of another thread's command must not stay open because of this
// one. The two select loops of the daemon keep its descriptors below FD_SETSIZE and some.
void close_descriptors() {
    constexpr int END = 2 * FD_SETSIZE;
    for (int fd = STDERR_FILENO + 1; fd < END; ++fd) {
        close(fd);
    }
}

void unblock(int signal_number) {
    sigset_t this_one;
    sigemptyset(&this_one);
    sigaddset(&this_one, signal_number);
    sigprocmask(SIG_UNBLOCK, &this_one, nullptr);
}

// Ends the calling process by a signal whose default is to end it.
[[noreturn]] void end_by(int signal_number) {
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    signal(signal_number, SIG_DFL);
    unblock(signal_number);
    kill(getpid(), signal_number);
    _Exit(STATUS_NO_SHELL);
}

pid_t led_shell;  // of this process, when it leads one; its group has the same number

void end_at_limit(int) {
    kill(-led_shell, SIGKILL);
    end_by(SIGALRM);
}

// What the daemon's child does: runs the shell, waits for it as long as it may take, and ends as it ended. It
// is a process of its own because a thread cannot wait for a child for a limited time. Being the copy of one
// thread of several, it calls nothing that may hold a lock.
[[noreturn]] void lead(const char* command, int output) {
    if (output >= 0) {
        dup2(output, STDOUT_FILENO);
    }
    close_descriptors();
    signal(SIGCHLD, SIG_DFL);
    led_shell = fork();
    if (led_shell == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // without its leader it would have no limit
        umask(COMMAND_UMASK);
        execl(_PATH_BSHELL, "sh", "-c", command, static_cast<char*>(nullptr));
        _Exit(STATUS_NO_SHELL);
    }
    if (led_shell < 0) {
        _Exit(STATUS_NO_SHELL);
    }
    setpgid(led_shell, led_shell);  // here too: the limit may come before the shell has run
    signal(SIGALRM, end_at_limit);
    unblock(SIGALRM);
    alarm(COMMAND_LIMIT_SECONDS);
    siginfo_t ended;
    while (waitid(P_PID, static_cast<id_t>(led_shell), &ended, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
    alarm(0);
    // What the command left running would hold its output open. The shell, not yet waited for, keeps its
    // number.
    kill(-led_shell, SIGKILL);
    int status = 0;
    waitpid(led_shell, &status, 0);
    if (WIFSIGNALED(status)) {
        end_by(WTERMSIG(status));
    }
    _Exit(WEXITSTATUS(status));
}

// Starts a command, its standard output in place of `output` unless that is negative. The child to wait for,
// or -1.
pid_t start_command(const char* command, int output) {
    const pid_t leader = fork();
    if (leader == 0) {
        lead(command, output);
    }
    return leader;
}

// Waits for a command. Its status, or -1.
int wait_for_command(pid_t leader, const char* command) {
    int status = 0;
    pid_t ended;
    do {
        ended = waitpid(leader, &status, 0);
    } while (ended < 0 && errno == EINTR);
    if (ended < 0) {
        return -1;
    }
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
        LOG_M_AS("run_command", "killed after %d seconds: %s\n", COMMAND_LIMIT_SECONDS, command);
    }
    return status;
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
    const DefaultChildSignal signal;
    const pid_t leader = start_command(command, -1);
    return leader < 0 ? -1 : wait_for_command(leader, command);
}

bool is_plain_name(const char* name) {
    return std::all_of(name, name + strlen(name), is_plain);
}

void make_plain_name(char* name) {
    std::replace_if(
        name, name + strlen(name), [](char c) { return !is_plain(c); }, '_');
}

CommandOutput::CommandOutput(const char* command) : command_(command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    UniqueFd read_end(ends[0]);
    const UniqueFd write_end(ends[1]);
    FILE* const stream = fdopen(read_end.get(), "r");
    if (stream == nullptr) {
        return;
    }
    read_end.release();
    leader_ = start_command(command, write_end.get());
    if (leader_ < 0) {
        fclose(stream);
        return;
    }
    stream_ = stream;
}

CommandOutput::~CommandOutput() {
    if (stream_ != nullptr) {
        fclose(stream_);
        wait_for_command(leader_, command_);
    }
}
