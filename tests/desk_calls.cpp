#include "tests/desk_calls.h"

#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<unsigned int> slept{0};
std::atomic<int> synced{0};

}  // namespace

unsigned int seconds_slept() {
    return slept.load();
}

int files_synced() {
    return synced.load();
}

// A millisecond for each call keeps a loop that waits from spinning.
extern "C" unsigned int sleep(unsigned int seconds) {
    slept += seconds;
    usleep(1000);
    return 0;
}

// A limit of seconds becomes one of milliseconds.
extern "C" int select(int count, fd_set* reads, fd_set* writes, fd_set* exceptions, timeval* limit) {
    timespec wait = {};
    if (limit != nullptr) {
        slept += static_cast<unsigned int>(limit->tv_sec);
        wait.tv_nsec = limit->tv_sec * 1000000L;
    }
    return pselect(count, reads, writes, exceptions, limit != nullptr ? &wait : nullptr, nullptr);
}

extern "C" int fsync(int fd) {
    ++synced;
    return static_cast<int>(syscall(SYS_fsync, fd));
}
