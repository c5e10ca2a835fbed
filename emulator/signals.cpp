// Signals between the processes of a phone.
#include "emulator/signals.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "emulator/refusal.h"

namespace phone {

namespace {

constexpr int STATUS_SIGNAL = 128;

constexpr int FORWARDED_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// The signal mask that `phone` was started with; the command gets it back.
sigset_t original_mask;

}  // namespace

Pipe make_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw refusal_errno("no pipe");
    }
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

sigset_t watched_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    for (const int number : FORWARDED_SIGNALS) {
        sigaddset(&set, number);
    }
    return set;
}

void hold_signals() {
    const sigset_t set = watched_signals();
    sigprocmask(SIG_BLOCK, &set, &original_mask);
    // A caller that ignores SIGCHLD would have the kernel throw exit statuses away.
    signal(SIGCHLD, SIG_DFL);
}

int exit_status(int status) {
    return WIFSIGNALED(status) ? STATUS_SIGNAL + WTERMSIG(status) : WEXITSTATUS(status);
}

bool take_signal(pid_t receiver) {
    const sigset_t set = watched_signals();
    siginfo_t info = {};
    const int number = sigwaitinfo(&set, &info);
    if (number == SIGHUP || (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL)) {
        kill(receiver, number);
    }
    return number > 0 && number != SIGCHLD;
}

bool forward_held_signals(pid_t receiver) {
    sigset_t set = watched_signals();
    sigdelset(&set, SIGCHLD);
    const timespec at_once = {};
    bool any = false;
    for (int number = sigtimedwait(&set, nullptr, &at_once); number > 0;
         number = sigtimedwait(&set, nullptr, &at_once)) {
        kill(receiver, number);
        any = true;
    }
    return any;
}

void restore_signals() {
    sigprocmask(SIG_SETMASK, &original_mask, nullptr);
}

}  // namespace phone
