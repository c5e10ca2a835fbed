#include "tests/failing_calls.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>

#include "platform/owned.h"
#include "tests/sanitized.h"

#ifndef SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV
#define SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV (1UL << 5)
#endif

namespace {

// Those that a report makes and that can fail on a phone. Not among them: waiting for a command, which takes
// any number of calls, and unlink, by which the clock of the tests looks for a command that hangs.
const std::vector<failing_call> CALLS = {
    {SYS_openat, O_CREAT, "open to create", {EIO, EINTR, EMFILE, ENOSPC}},
    {SYS_openat, 0, "open", {EIO, EINTR, EMFILE}},
    {SYS_read, 0, "read", {EIO, EINTR}},
    {SYS_write, 0, "write", {EIO, EINTR, ENOSPC}},
    {SYS_close, 0, "close", {EIO, EINTR}},
    {SYS_fsync, 0, "fsync", {EIO, EINTR, ENOSPC}},
    {SYS_getdents64, 0, "getdents", {EIO}},
    {SYS_statx, 0, "statx", {EIO}},
    {SYS_faccessat, 0, "faccessat", {EIO}},
    {SYS_fchmod, 0, "fchmod", {EIO}},
    {SYS_fchmodat, 0, "fchmodat", {EIO}},
    {SYS_mkdirat, 0, "mkdirat", {EIO, ENOSPC}},
    {SYS_utimensat, 0, "utimensat", {EIO}},
    {SYS_pipe2, 0, "pipe2", {EMFILE}},
    {SYS_clone, 0, "clone", {EAGAIN}},
#ifdef SYS_newfstatat
    {SYS_newfstatat, 0, "newfstatat", {EIO}},
    {SYS_fstat, 0, "fstat", {EIO}},
#else
    {SYS_fstatat64, 0, "fstatat64", {EIO}},
    {SYS_fstat64, 0, "fstat64", {EIO}},
#endif
#ifdef SYS_access  // newer processors lack these
    {SYS_access, 0, "access", {EIO}},
    {SYS_chmod, 0, "chmod", {EIO}},
    {SYS_mkdir, 0, "mkdir", {EIO, ENOSPC}},
    {SYS_vfork, 0, "vfork", {EAGAIN}},
#endif
};

// From now on each of these calls of this thread, and of what it starts, waits for an answer through the
// descriptor that this returns; negative when there is none.
int hold_calls() {
    std::vector<sock_filter> steps = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const failing_call& call : CALLS) {
        // ThreadSanitizer starts a process with locks held without which nobody here could answer.
        if (SANITIZED && call.errors.front() == EAGAIN) {
            continue;
        }
        steps.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(call.number), 0, 1));
        steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog filter = {static_cast<unsigned short>(steps.size()), steps.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    // The second flag keeps a signal from repeating a call.
    constexpr unsigned long FLAGS = SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV;
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, FLAGS, &filter));
}

}  // namespace

std::vector<const failing_call*> run_with_failing_call(const std::function<void()>& run, size_t failing,
                                                       int error) {
    constexpr int NOT_YET = -2;
    std::atomic<int> descriptor{NOT_YET};
    pid_t caller = 0;
    std::thread thread([&] {
        caller = static_cast<pid_t>(syscall(SYS_gettid));
        descriptor = hold_calls();
        if (descriptor >= 0) {
            run();
        }
    });
    while (descriptor == NOT_YET) {
        std::this_thread::yield();
    }
    const UniqueFd answers(descriptor);
    std::vector<const failing_call*> made;
    pollfd waiting = {answers.get(), POLLIN, 0};
    // Without POLLIN, the thread and all that it started have ended.
    while (answers.valid() && poll(&waiting, 1, -1) == 1 && (waiting.revents & POLLIN) != 0) {
        seccomp_notif call = {};
        if (ioctl(answers.get(), SECCOMP_IOCTL_NOTIF_RECV, &call) != 0) {
            continue;  // its command was killed meanwhile
        }
        const bool counts = static_cast<pid_t>(call.pid) == caller;
        seccomp_notif_resp answer = {call.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
        if (counts && made.size() == failing) {
            answer.flags = 0;
            answer.error = -error;
            if (call.data.nr == SYS_close) {  // which takes the descriptor, whatever it says
                syscall(SYS_close, static_cast<int>(call.data.args[0]));
            }
        }
        ioctl(answers.get(), SECCOMP_IOCTL_NOTIF_SEND, &answer);
        if (counts) {
            made.push_back(&*std::find_if(CALLS.begin(), CALLS.end(), [&](const failing_call& c) {
                return c.number == call.data.nr && (call.data.args[2] & c.flags) == c.flags;
            }));
        }
    }
    thread.join();
    return made;
}
