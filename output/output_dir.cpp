// Creating the output directory and its files.
#include "output/output_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/plain_file.h"

namespace {

constexpr mode_t DIRECTORY_MODE = 0775;
constexpr mode_t FILE_MODE = 0644;

}  // namespace

int mkdir_parent() {
    char path[] = DMD_LOG_DIR "/";
    for (char* slash = strchr(path + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        if (access(path, F_OK) != 0) {
            if (mkdir(path, DIRECTORY_MODE) != 0) {
                const int reason = errno;
                // Another thread may have created it since: both output locks lead here.
                if (access(path, F_OK) != 0) {
                    LOG_M("mkdir %s - %s\n", path, strerror(reason));
                    return -1;
                }
            }
            const UniqueFd dir(open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (!dir.valid() || fchmod(dir.get(), DIRECTORY_MODE) != 0) {
                LOG_M("chmod %s failed - %s\n", path, strerror(errno));
            }
        }
        *slash = '/';
    }
    return 0;
}

bool clear_place(const char* path, bool keep_data) {
    struct stat status = {};
    int reason = lstat(path, &status) == 0 ? 0 : errno;
    const bool is_own_file =
        S_ISREG(status.st_mode) && status.st_nlink == 1 && (keep_data || status.st_uid == geteuid());
    // Nothing writes into a directory: whoever tries says so.
    if (reason == ENOENT || is_own_file || S_ISDIR(status.st_mode)) {
        return true;
    }
    if (reason == 0 && unlink(path) != 0) {
        reason = errno;
    }
    LOG_M("%s is not a plain file of this daemon - %s\n", path, reason == 0 ? "removed" : strerror(reason));
    errno = reason;
    return reason == 0;
}

int open_output_file(const char* path, int flags) {
    if (path == nullptr) {
        return -1;
    }
    const bool is_clear = clear_place(path, (flags & O_TRUNC) == 0);
    UniqueFd fd = is_clear ? open_plain_file(path, flags, FILE_MODE) : UniqueFd();
    int reason = errno;
    if (!fd.valid()) {
        LOG_M("unable to open %s - %s\n", path, strerror(reason));
    } else if (fchmod(fd.get(), FILE_MODE) != 0) {
        reason = errno;
        LOG_M("unable to change %s - %s\n", path, strerror(reason));
        fd.reset();
    }
    LOG_D("file %s, fd %d\n", path, fd.get());
    errno = reason;
    return fd.release();
}

void set_modified_time(const char* path, const file_time& time) {
    const timespec times[] = {{0, UTIME_OMIT},
                              {static_cast<time_t>(time.seconds), static_cast<long>(time.nanoseconds)}};
    if (utimensat(AT_FDCWD, path, times, AT_SYMLINK_NOFOLLOW) != 0) {
        LOG_M("the time of %s cannot be set - %s\n", path, strerror(errno));
    }
}

int write_part(int fd, const char* path, const char* part, const void* bytes, int count) {
    if (write_fully(fd, bytes, count) != count) {
        tell_lost(path, part);
        return 0;
    }
    return count;
}

void tell_lost(const char* path, const char* part) {
    LOG_M("%s in %s is cut or lost - %s\n", part, path, strerror(errno));
}

void sync_file(int fd, const char* path) {
    if (fd < 0 || fsync(fd) != 0) {
        LOG_M("%s is not safe from a power cut - %s\n", path, strerror(errno));
    }
}

void sync_output_dir() {
    const UniqueFd dir(open(DMD_LOG_DIR, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    sync_file(dir.get(), DMD_LOG_DIR);
}
