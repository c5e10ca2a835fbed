// Running commands through the shell.
#include "output/shell_command.h"

#include <fcntl.h>
#include <paths.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iterator>

#include "output/output_dir.h"
#include "platform/log.h"
#include "platform/monotonic_clock.h"
#include "platform/mutex.h"
#include "platform/text.h"

namespace {

// Write permission for the owner only, though the daemon's own umask is 0 from its first upload on.
constexpr mode_t COMMAND_UMASK = 022;

constexpr int STATUS_NO_SHELL = 127;

// What a command's group gets at its limit, a second apart. Programs can clean up after the first.
constexpr int END_SIGNALS[] = {SIGTERM, SIGKILL};
constexpr int64_t SECOND_US = 1000000;

// The time between two looks at a command is an eighth of its age, within these bounds. No call that all
// kernels have waits for one process with a limit.
constexpr int64_t NAP_MIN_US = 50;
constexpr int64_t NAP_MAX_US = 20000;

bool is_plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
}

Mutex child_signal_mutex;
int commands_running GUARDED_BY(child_signal_mutex) = 0;
struct sigaction previous_disposition GUARDED_BY(child_signal_mutex) = {};

// Gives SIGCHLD its default disposition while any thread runs a command, and restores the previous one after
// the last.
struct DefaultChildSignal {
    DefaultChildSignal() {
        const MutexLock lock(child_signal_mutex);
        if (commands_running++ == 0) {
            struct sigaction by_default = {};
            by_default.sa_handler = SIG_DFL;
            sigaction(SIGCHLD, &by_default, &previous_disposition);
        }
    }
    ~DefaultChildSignal() {
        const MutexLock lock(child_signal_mutex);
        if (--commands_running == 0) {
            sigaction(SIGCHLD, &previous_disposition, nullptr);
        }
    }
    DefaultChildSignal(const DefaultChildSignal&) = delete;
    DefaultChildSignal& operator=(const DefaultChildSignal&) = delete;
};

// Runs in the child and becomes the shell. Until then it shares the daemon's memory, so it only makes system
// calls.
[[noreturn]] void become_shell(const char* command, int output) {
    setpgid(0, 0);
    signal(SIGCHLD, SIG_DFL);
    umask(COMMAND_UMASK);
    close(STDIN_FILENO);
    open("/dev/null", O_RDONLY);  // takes the lowest number, which is free now
    if (output >= 0) {
        dup2(output, STDOUT_FILENO);
    }
    execl(_PATH_BSHELL, "sh", "-c", command, nullptr);
    _exit(STATUS_NO_SHELL);
}

}  // namespace

int run_command(const char* command, int limit_seconds, int output) {
    const DefaultChildSignal default_signal;
    const int64_t start = monotonic_us();
    int64_t deadline = start + limit_seconds * SECOND_US;
    size_t signals_sent = 0;
    // With fork, which copies the daemon's page tables, a commercial build's report takes a fifth longer.
    const pid_t shell = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (shell == 0) {
        become_shell(command, output);  // NOLINT(clang-analyzer-unix.Vfork)
    }
    for (;;) {
        siginfo_t ended = {};
        // WNOWAIT keeps the status, so that nobody else gets the process number. waitid fails if somebody
        // else took the status.
        if (shell < 0 || waitid(P_PID, static_cast<id_t>(shell), &ended, WEXITED | WNOWAIT | WNOHANG) != 0) {
            return -1;
        }
        const int64_t now = monotonic_us();
        // After SIGTERM, programs have their second to clean up even if the shell has ended.
        if (ended.si_pid == shell && (signals_sent != 1 || now >= deadline)) {
            kill(-shell, SIGKILL);
            int status = -1;
            waitpid(shell, &status, 0);
            return status;
        }
        if (now >= deadline) {
            if (signals_sent == std::size(END_SIGNALS)) {
                return SIGKILL;
            }
            if (signals_sent == 0) {
                LOG_M("ended after %d seconds: %s\n", limit_seconds, command);
            }
            kill(-shell, END_SIGNALS[signals_sent++]);
            deadline = now + SECOND_US;
        }
        usleep(static_cast<useconds_t>(std::clamp((now - start) / 8, NAP_MIN_US, NAP_MAX_US)));
    }
}

int secure_system(const char* command) {
    LOG_M("system cmd_line:%s.\n", command);
    return run_command(command);
}

int remove_by_command(const char* path) {
    char command[COMMAND_SIZE];
    format_text(command, sizeof command, "rm %s", path);
    return secure_system(command);
}

bool is_plain_name(const char* name) {
    return std::all_of(name, name + strlen(name), is_plain);
}

void make_plain_name(char* name) {
    std::replace_if(
        name, name + strlen(name), [](char c) { return !is_plain(c); }, '_');
}
