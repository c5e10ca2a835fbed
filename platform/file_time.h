// When a file was modified, to the nanosecond: seconds do not tell which of two files of the same second is
// newer.
#pragma once

#include <sys/stat.h>

#include <ctime>

struct file_time {
    unsigned long seconds;  // times before 1970 count as the latest
    unsigned long nanoseconds;
};

// The nanoseconds have another name in the C libraries of old releases.
template <typename Status>
auto modified_nanoseconds(const Status& status) -> decltype(status.st_mtim.tv_nsec) {
    return status.st_mtim.tv_nsec;
}
template <typename Status>
auto modified_nanoseconds(const Status& status) -> decltype(status.st_mtime_nsec) {
    return status.st_mtime_nsec;
}

inline file_time modified_time(const struct stat& status) {
    return {static_cast<unsigned long>(status.st_mtime),
            static_cast<unsigned long>(modified_nanoseconds(status))};
}

inline bool is_later(const file_time& time, const file_time& other) {
    return time.seconds != other.seconds ? time.seconds > other.seconds
                                         : time.nanoseconds > other.nanoseconds;
}

// Now. No file has a later time unless the clock was set.
inline file_time current_file_time() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return {static_cast<unsigned long>(now.tv_sec), static_cast<unsigned long>(now.tv_nsec)};
}
