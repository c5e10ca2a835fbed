// Creating the output directory and its files.
#include "output/output_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/log.h"
#include "platform/owned.h"

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
            if (chmod(path, DIRECTORY_MODE) != 0) {
                LOG_M("chmod %s failed - %s\n", path, strerror(errno));
            }
        }
        *slash = '/';
    }
    return 0;
}

int open_without_waiting(const char* path, int flags, mode_t mode) {
    UniqueFd fd(open(path, flags | O_NONBLOCK | O_CLOEXEC, mode));
    struct stat opened;
    if (fd.valid() && fstat(fd.get(), &opened) == 0 && S_ISFIFO(opened.st_mode)) {
        fd.reset();
        errno = ENXIO;
    }
    return fd.release();
}

int open_output_file(const char* path, int flags) {
    if (path == nullptr) {
        return -1;
    }
    UniqueFd fd(open_without_waiting(path, flags, FILE_MODE));
    int reason = errno;
    if (!fd.valid()) {
        LOG_M("unable to open %s - %s\n", path, strerror(reason));
    } else if (chmod(path, FILE_MODE) != 0) {
        reason = errno;
        LOG_M("unable to change %s - %s\n", path, strerror(reason));
        fd.reset();
    }
    LOG_D("file %s, fd %d\n", path, fd.get());
    errno = reason;
    return fd.release();
}
