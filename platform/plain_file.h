// Opening files and directories in places where others may put whatever they like.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/owned.h"

// As open, but never waits, follows no link in the last part of the path, and refuses all but regular files
// (errno ESTALE): a FIFO or a device could block the daemon or, by going away, end it. The commands that the
// daemon runs do not inherit the file. Holds no descriptor on failure, errno telling why.
inline UniqueFd open_plain_file(const char* path, int flags, mode_t mode = 0) {
    UniqueFd file(open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_LARGEFILE | O_CLOEXEC, mode));
    struct stat status;
    if (file.valid() && fstat(file.get(), &status) != 0) {
        return UniqueFd();
    }
    if (file.valid() && !S_ISREG(status.st_mode)) {
        file.reset();
        errno = ESTALE;
    }
    return file;
}

// As opendir, but follows no link in the last part of the path. Null on failure, errno telling why.
inline UniqueDir open_plain_directory(const char* path, int link_flag = O_NOFOLLOW) {
    UniqueFd fd(open(path, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | link_flag));
    UniqueDir directory(fd.valid() ? fdopendir(fd.get()) : nullptr);
    if (directory != nullptr) {
        fd.release();
    }
    return directory;
}
