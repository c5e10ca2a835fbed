// Whole reads and writes.
#pragma once

#include <unistd.h>

#include <cerrno>

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
