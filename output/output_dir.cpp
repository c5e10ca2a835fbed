// Creating the output directory and its files, and splitting commands.
#include "output/output_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "output/shell_command.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

constexpr mode_t DIRECTORY_MODE = 0775;
constexpr mode_t FILE_MODE = 0644;
constexpr int MIN_COMMAND_WORDS = 3;

// Opens the file and sets its mode; the descriptor, or -1 after a message, errno telling why.
int open_with_mode(const char* path, int flags) {
    constexpr char name[] = "open_output_file";
    UniqueFd fd(open_at_once(path, flags, FILE_MODE));
    int reason;
    if (!fd.valid()) {
        reason = errno;
        LOG_M_AS(name, "unable to open %s - %s\n", path, strerror(reason));
    } else if (chmod(path, FILE_MODE) != 0) {
        reason = errno;
        LOG_M_AS(name, "unable to change %s - %s\n", path, strerror(reason));
    } else {
        return fd.release();
    }
    fd.reset();
    errno = reason;
    return -1;
}

}  // namespace

int mkdir_parent() {
    char path[PATH_SIZE];
    copy_text(path, sizeof path - 1, DMD_LOG_DIR);
    if (path[strlen(path) - 1] != '/') {
        append_text(path, sizeof path, "/");
    }
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

int open_at_once(const char* path, int flags, mode_t mode) {
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
    const int fd = open_with_mode(path, flags);
    const int reason = errno;
    LOG_D("file %s, fd %d\n", path, fd);
    errno = reason;
    return fd;
}

int secure_system(const char* command) {
    LOG_M("system cmd_line:%s.\n", command);
    return run_command(command);
}

int parse_command(char* text, int* argc, char** argv) {
    char* rest = nullptr;
    int words = 0;
    char* word = strtok_r(text, WORD_SEPARATORS, &rest);
    for (; word != nullptr && words < MAX_COMMAND_WORDS; word = strtok_r(nullptr, WORD_SEPARATORS, &rest)) {
        argv[words++] = word;
    }
    *argc = words;
    if (words < MIN_COMMAND_WORDS || word != nullptr) {
        LOG_M("invalid compress command:%s.\n", text);
        return -1;
    }
    return 0;
}
