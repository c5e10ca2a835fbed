#include "tests/desk_calls.h"

#include <poll.h>
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
    std::unique_lock<std::mutex> lock(gate().mutex);
    const bool timed = limit != nullptr && !gate().closed;
    lock.unlock();
    const int ready = pselect(count, reads, writes, exceptions, timed ? &wait : nullptr, nullptr);
    if (limit != nullptr && ready == 0) {
        slept += static_cast<unsigned int>(limit->tv_sec);
    }
    return ready;
}

// The limit of a command is the one wait of minutes.
extern "C" int poll(pollfd* events, nfds_t count, int limit_ms) {
    const int shorter_ms = limit_ms > 60000 ? command_limit_ms.load() : 0;
    const int used_ms = shorter_ms > 0 ? shorter_ms : limit_ms;
    const timespec limit = {used_ms / 1000, used_ms % 1000 * 1000000L};
    return ppoll(events, count, limit_ms < 0 ? nullptr : &limit, nullptr);
}

extern "C" int fsync(int fd) {
    ++synced;
    return static_cast<int>(syscall(SYS_fsync, fd));
}
