// Calls that are made again: until they are not interrupted, or until all is read or written.
#pragma once

#include <unistd.h>

#include <cerrno>

// A driver that interrupts calls for ever must not hold its thread.
constexpr int INTERRUPTIONS_MAX = 100;

// Makes a call again while it is interrupted. Returns what it returned last.
template <typename Call>
auto repeat_interrupted(Call call) {
    auto result = call();
    for (int i = 0; result < 0 && errno == EINTR && i < INTERRUPTIONS_MAX; ++i) {
        result = call();
    }
    return result;
}

// Reads until `count` bytes, end of file or an error. Returns the bytes read (less than count: end of file),
// or -1 on an error.
inline int read_fully(int fd, void* buf, int count) {
    char* const bytes = static_cast<char*>(buf);
    int done = 0;
    while (done < count) {
        const ssize_t got = read(fd, bytes + done, count - done);
        if (got == 0) {
            break;
        }
        if (got > 0) {
            done += static_cast<int>(got);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return done;
}

// Writes until all `count` bytes are written. Returns count, or -1 on an error.
inline int write_fully(int fd, const void* buf, int count) {
    const char* const bytes = static_cast<const char*>(buf);
    int done = 0;
    while (done < count) {
        const ssize_t put = write(fd, bytes + done, count - done);
        if (put > 0) {
            done += static_cast<int>(put);
        } else if (put == 0 || errno != EINTR) {
            return -1;
        }
    }
    return done;
}
