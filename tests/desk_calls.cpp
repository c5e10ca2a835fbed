#include "tests/desk_calls.h"

#include <signal.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace {

std::atomic<unsigned int> slept{0};
std::atomic<int> synced{0};
std::atomic<int> command_limit_ms{0};

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

void limit_commands(int milliseconds) {
    command_limit_ms = milliseconds;
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

// A limit of seconds becomes one of milliseconds, and counts when it was reached.
extern "C" int select(int count, fd_set* reads, fd_set* writes, fd_set* exceptions, timeval* limit) {
    timespec wait = {};
    if (limit != nullptr) {
        wait.tv_nsec = limit->tv_sec * 1000000L;
    }
    const int ready = pselect(count, reads, writes, exceptions, limit != nullptr ? &wait : nullptr, nullptr);
    if (limit != nullptr && ready == 0) {
        slept += static_cast<unsigned int>(limit->tv_sec);
    }
    return ready;
}

// The wait for the end of a command.
extern "C" int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* limit) {
    const int milliseconds = command_limit_ms.load();
    const timespec shorter = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    const timespec wait = milliseconds > 0 ? shorter : *limit;
    return static_cast<int>(syscall(SYS_rt_sigtimedwait, set, info, &wait, _NSIG / 8));
}

extern "C" int fsync(int fd) {
    ++synced;
    return static_cast<int>(syscall(SYS_fsync, fd));
}
