#include "tests/desk_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

namespace {

std::atomic<unsigned int> slept{0};
std::atomic<int> synced{0};
std::atomic<int64_t> held_clock_ms{0};  // 0: the clock runs
std::atomic<int64_t> passed_ms{0};      // that the daemon's clock is ahead of that

std::atomic<bool> next_select_fails{false};

// Outlives every test, like the daemon's threads.
struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    bool closed = false;
    int passes = 0;
};

Gate& gate() {
    static Gate* const instance = new Gate;
    return *instance;
}

}  // namespace

unsigned int seconds_slept() {
    return slept.load();
}

int files_synced() {
    return synced.load();
}

void fail_next_select() {
    next_select_fails = true;
}

void hold_clock(int64_t milliseconds) {
    held_clock_ms = milliseconds;
}

void hold_sleeps() {
    const std::lock_guard<std::mutex> lock(gate().mutex);
    gate().closed = true;
}

void let_a_sleep_pass() {
    const std::lock_guard<std::mutex> lock(gate().mutex);
    ++gate().passes;
    gate().changed.notify_all();
}

// Root may start processes beyond every limit, so the refusal comes from a filter of system calls.
void run_without_processes(const std::function<void()>& run) {
#ifdef SYS_vfork
    constexpr unsigned int VFORK = SYS_vfork;
#else
    constexpr unsigned int VFORK = SYS_clone;
#endif
    std::thread thread([&run] {
        sock_filter steps[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, VFORK, 1, 0),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 1),  // by which others fork
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog filter = {sizeof steps / sizeof *steps, steps};
        ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
        ASSERT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter));
        run();
    });
    thread.join();
}

// A millisecond for each call keeps a loop that waits from spinning.
extern "C" unsigned int sleep(unsigned int seconds) {
    slept += seconds;
    std::unique_lock<std::mutex> lock(gate().mutex);
    if (!gate().closed) {
        lock.unlock();
        usleep(1000);
        return 0;
    }
    gate().changed.wait(lock, [] { return gate().passes > 0; });
    --gate().passes;
    return 0;
}

// A limit of seconds becomes one of milliseconds; it passes and counts when it was reached.
extern "C" int select(int count, fd_set* reads, fd_set* writes, fd_set* exceptions, timeval* limit) {
    const int64_t limit_ms = limit != nullptr ? limit->tv_sec * 1000 + limit->tv_usec / 1000 : 0;
    const timespec wait = {0, static_cast<long>(limit_ms * 1000)};
    std::unique_lock<std::mutex> lock(gate().mutex);
    const bool timed = limit != nullptr && !gate().closed;
    lock.unlock();
    const int ready = pselect(count, reads, writes, exceptions, timed ? &wait : nullptr, nullptr);
    if (next_select_fails.exchange(false)) {
        errno = EBADF;
        return -1;
    }
    if (limit != nullptr && ready == 0) {
        slept += static_cast<unsigned int>((limit_ms + 500) / 1000);
        passed_ms += limit_ms;
    }
    return ready;
}

// Only the calls of the daemon and the tests come here, not those of the libraries.
extern "C" int __real_clock_gettime(clockid_t clock, timespec* now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* now) {
    const int reason = errno;
    if (unlink(HANGS) == 0) {
        passed_ms += 300000;
    }
    errno = reason;
    const int result = __real_clock_gettime(clock, now);
    if (clock == CLOCK_MONOTONIC) {
        const int64_t held_ms = held_clock_ms;
        const int64_t ns =
            (held_ms > 0 ? held_ms * 1000000 : now->tv_sec * int64_t{1000000000} + now->tv_nsec) +
            passed_ms * 1000000;
        *now = {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    }
    return result;
}

extern "C" int fsync(int fd) {
    ++synced;
    return static_cast<int>(syscall(SYS_fsync, fd));
}
