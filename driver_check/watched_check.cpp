// The checking process and the one that watches it.
#include "driver_check/watched_check.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "platform/io.h"
#include "platform/owned.h"

namespace {

constexpr int MS_PER_S = 1000;

// What dmd loses with a call that does not return.
constexpr char NO_START[] = "dmd's main thread waits there, and nothing of dmd starts";
constexpr char LOST_THREAD[] =
    "dmd loses the thread that calls, and any thread that waits for the client's lock";

void print_line(const char* name, const char* kind, const char* format, va_list arguments) {
    printf("%s: %s", name, kind);
    vprintf(format, arguments);
    putchar('\n');
}

// Whether the checking process says something, or ends, in time.
bool wait_for_word(int fd, int seconds) {
    pollfd ready = {fd, POLLIN, 0};
    int result;
    do {
        result = poll(&ready, 1, seconds * MS_PER_S);
    } while (result < 0 && errno == EINTR);
    return result != 0;
}

}  // namespace

const dsm_call_info CALLS[CALL_COUNT] = {
    {"open", 0, 5, NO_START},
    {"bind", DSM_IOCTL_BIND, 5, NO_START},
    {"get state", DSM_IOCTL_GET_STATE, 5, LOST_THREAD},
    {"force dump", DSM_IOCTL_FORCE_DUMP, 60, LOST_THREAD},  // the hardware may take its time
    {"get error", DSM_IOCTL_GET_ERROR, 5, LOST_THREAD},
    {"get device name", DSM_IOCTL_GET_DEVICE_NAME, 5, LOST_THREAD},
    {"get module name", DSM_IOCTL_GET_MODULE_NAME, 5, LOST_THREAD},
    {"get IC name", DSM_IOCTL_GET_IC_NAME, 5, LOST_THREAD},
    {"select", 0, 5, LOST_THREAD},
    {"a read", 0, 5, LOST_THREAD},
    {"a read with nothing pending", 0, 5, LOST_THREAD},
    {"a select that waits", 0, 5, LOST_THREAD},
    {"close", 0, 5, NO_START},  // of a descriptor that could not be bound
};

check_findings watch(const driver_check& check, void (*run)(driver_check* check)) {
    driver_check own = check;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        warn(&own, "cannot be checked: no pipe - %s", strerror(errno));
        return own.findings;
    }
    const UniqueFd listening(ends[0]);
    UniqueFd telling(ends[1]);
    fflush(stdout);
    const pid_t watcher = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        warn(&own, "cannot be checked: no process - %s", strerror(errno));
        return own.findings;
    }
    if (pid == 0) {
        // Left alone in a read, it would take the next error from dmd.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != watcher) {
            _exit(0);
        }
        own.watcher = telling.get();
        run(&own);
        fflush(stdout);
        write_fully(own.watcher, &own.findings, sizeof own.findings);
        _exit(0);
    }
    telling.reset();
    for (;;) {
        const dsm_call_info& call = CALLS[own.findings.call];
        const int seconds = call.seconds + (own.findings.call == CALL_WAIT ? own.wait_seconds : 0);
        if (!wait_for_word(listening.get(), seconds)) {
            // Its end may never come, so nobody waits for it.
            kill(pid, SIGKILL);
            own.findings.hung = true;
            warn(&own, "%s does not return within %d s: %s; nothing else was tried", call.name, seconds,
                 call.harm);
            return own.findings;
        }
        check_findings latest;
        if (read_fully(listening.get(), &latest, sizeof latest) != static_cast<int>(sizeof latest)) {
            break;
        }
        own.findings = latest;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (status != 0) {
        warn(&own, "the check ended during %s, with status %d", CALLS[own.findings.call].name, status);
    }
    return own.findings;
}

void announce(driver_check* check, dsm_call call) {
    check->findings.call = call;
    write_fully(check->watcher, &check->findings, sizeof check->findings);
}

void warn(driver_check* check, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print_line(check->name, "warning: ", format, arguments);
    va_end(arguments);
    ++check->findings.warnings;
}

void note(const driver_check* check, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    print_line(check->name, "", format, arguments);
    va_end(arguments);
}
