// The daemon's entry: brings everything up, then sleeps; the servers' threads do the work.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "daemon/command_line.h"
#include "daemon/log.h"
#include "daemon/start_sequence.h"
#include "platform/owned.h"
#include "platform/properties.h"

namespace {

constexpr int PRIORITY = -20;

// Gives the daemon, and so the commands that it runs, an input that never keeps them waiting for a person.
void drop_standard_input() {
    UniqueFd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (nothing.get() == STDIN_FILENO) {
        fcntl(nothing.release(), F_SETFD, 0);  // the daemon was started without one
    } else if (nothing.valid()) {
        dup2(nothing.get(), STDIN_FILENO);
    }
}

bool is_disabled() {
    char value[PROPERTY_VALUE_MAX] = {};
    return property_get("persist.sys.dmd.disable", value, "0") > 0 &&
           strncmp(value, "true", sizeof value) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    LOG_M("Qelvan Device monitor daemon started\n");
    if (setpriority(PRIO_PROCESS, getpid(), PRIORITY) != 0) {
        LOG_M("setpriority failed - %s\n", strerror(errno));
    }
    if (parse_commandline(argc, argv) == 0) {
        print_usage();
        return 0;
    }
    drop_standard_input();
    if (!is_disabled()) {
        LOG_M("Enter daemon main loop, %ds has passed\n", wait_for_boot_completion());
        run_start_steps();
    }
    // There is no way down from here but a signal.
    for (;;) {
        pause();
    }
}
