// The daemon's entry: brings everything up, then sleeps; the servers' threads do the work.
#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "daemon/command_line.h"
#include "daemon/log.h"
#include "daemon/start_sequence.h"
#include "platform/properties.h"

namespace {

constexpr int PRIORITY = -20;

// Fills the standard descriptors that the daemon was started without: a file that got such a number would
// take the log or what a command prints.
void fill_standard_descriptors() {
    int fd;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

// Keeps what the daemon was started with, but for the standard descriptors, from the commands that it runs.
void keep_descriptors() {
    constexpr int END = 2 * FD_SETSIZE;  // nobody hands over more
    for (int fd = STDERR_FILENO + 1; fd < END; ++fd) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
}

// Has memory given back to the system when it is freed. Left to itself, the desk's library would keep what
// the largest dumps needed, some 10 MiB for each thread.
void keep_memory_small() {
#ifdef M_MMAP_THRESHOLD
    constexpr int LARGE = 48 * 1024;  // above what a report needs every time
    mallopt(M_MMAP_THRESHOLD, LARGE);
    mallopt(M_TOP_PAD, 0);
#endif
}

bool is_disabled() {
    char value[PROPERTY_VALUE_MAX] = {};
    return property_get("persist.sys.dmd.disable", value, "0") > 0 &&
           strncmp(value, "true", sizeof value) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    keep_memory_small();
    fill_standard_descriptors();
    keep_descriptors();
    LOG_M("Qelvan Device monitor daemon started\n");
    if (setpriority(PRIO_PROCESS, getpid(), PRIORITY) != 0) {
        LOG_M("setpriority failed - %s\n", strerror(errno));
    }
    if (parse_commandline(argc, argv) == 0) {
        print_usage();
        return 0;
    }
    if (!is_disabled()) {
        LOG_M("Enter daemon main loop, %ds has passed\n", wait_for_boot_completion());
        run_start_steps();
    }
    // There is no way down from here but a signal.
    for (;;) {
        pause();
    }
}
