// The daemon's entry. It brings everything up and then sleeps: the servers' threads do the work.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "daemon/command_line.h"
#include "daemon/start_sequence.h"
#include "platform/log.h"
#include "platform/properties.h"

namespace {

constexpr int PRIORITY = -20;

// Opens /dev/null on every standard descriptor that is closed. A file that got such a number would receive
// the log, or what a command prints.
void fill_standard_descriptors() {
    int fd;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

bool is_disabled() {
    char value[PROPERTY_VALUE_MAX] = {};
    return property_get("persist.sys.dmd.disable", value, "0") > 0 &&
           strncmp(value, "true", sizeof value) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    fill_standard_descriptors();
    LOG_M("Qelvan Device monitor daemon started\n");
    if (setpriority(PRIO_PROCESS, getpid(), PRIORITY) != 0) {
        LOG_M("setpriority failed - %s\n", strerror(errno));
    }
    if (parse_commandline(argc, argv) == 0) {
        print_usage();
        return 0;
    }
    if (!is_disabled()) {
        const int tries = wait_for_boot_completion();
        LOG_M("Enter daemon main loop, %ds has passed\n", tries);
        run_start_steps();
    }
    // There is no way down from here but a signal.
    for (;;) {
        pause();
    }
}
