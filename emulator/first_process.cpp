// The first process of a phone: starts all others, reaps them, and starts a killed daemon again.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "emulator/driver_server.h"
#include "emulator/files.h"
#include "emulator/log_keeper.h"
#include "emulator/phone.h"
#include "emulator/phone_view.h"
#include "emulator/refusal.h"
#include "emulator/signals.h"
#include "platform/owned.h"

namespace phone {

namespace {

// As init waits before it starts a service again.
constexpr int RESTART_SECONDS = 5;
// Bytes of a record file that reports are counted in; the daemon's own have half a MiB and the last report.
constexpr size_t RECORD_MAX = 64 * 1024 * 1024;
constexpr char REPORT_HEAD[] = "========Device Bugreport========\n";

// Starts a process that does `run`, which does not return.
template <typename Run>
pid_t start_process(const char* what, Run run) {
    const pid_t child = fork();
    if (child < 0) {
        throw refusal_errno(std::string("cannot start ") + what);
    }
    if (child == 0) {
        run();
    }
    return child;
}

// Starts the process that stands in for the phone's media service, which the daemon looks for by its name. It
// does nothing, holds nothing and ends with the phone. Returns when it is in place.
void start_media_server() {
    Pipe ready = make_pipe();
    const pid_t server = start_process("the media server", [] {
        setsid();
        prctl(PR_SET_NAME, "mediaserver");
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        close_range(0, ~0U, 0);
        for (;;) {
            pause();
        }
    });
    ready.write_end.reset();
    char byte;
    (void)!read(ready.read_end.get(), &byte, 1);
    show_in_proc(server);
}

// The phone's log during a boot. `lines` is the end that the daemon writes to.
struct Log {
    pid_t display = -1;
    UniqueFd lines;
};

// Says how many reports the phone takes with it.
void tell_discarded() {
    size_t reports = 0;
    try {
        for (const std::string& name : names_in(PHONE_LOG_DIR)) {
            const std::string path = std::string(PHONE_LOG_DIR) + "/" + name;
            if (name.rfind("dmd_record_", 0) == 0) {
                const std::string text = read_file(path, RECORD_MAX);
                for (size_t at = 0; (at = text.find(REPORT_HEAD, at)) != std::string::npos; ++at) {
                    ++reports;
                }
            } else if (name.rfind("dmd_dump_", 0) == 0 && name.find(".txt") != std::string::npos) {
                ++reports;
            }
        }
    } catch (const Refusal&) {
        // Without a folder of reports there is none.
    }
    if (reports > 0) {
        print_refusal((std::to_string(reports) + (reports == 1 ? " report" : " reports") +
                       " discarded; --data DIR keeps them")
                          .c_str());
    }
}

Log start_log(const PhoneOptions& options, const std::string& head) {
    Pipe lines = make_pipe();
    Pipe keeper = make_pipe();
    start_process("the keeper of the log", [&] {
        lines.write_end.reset();
        keeper.read_end.reset();
        run_log_keeper(lines.read_end);
    });
    const pid_t display = start_process("the display of the log", [&] {
        lines = {};
        keeper.write_end.reset();
        show_log(keeper.read_end, head, options.banner);
        if (options.data_dir.empty()) {
            tell_discarded();
        }
        _exit(0);
    });
    return {display, std::move(lines.write_end)};
}

// Lets the log be shown to its end, which others may hold open, or a terminal hold up.
void end_log(Log* log) {
    log->lines.reset();
    for (int tries = 0; tries < 100 && waitpid(log->display, nullptr, WNOHANG) == 0; ++tries) {
        usleep(10000);
    }
}

pid_t start_command(const PhoneOptions& options, const Log& log) {
    return start_process("the command", [&] {
        if (log.lines.valid()) {
            dup2(log.lines.get(), STDERR_FILENO);
        }
        show_in_proc(getpid());
        become_command(options.socket_name, options.command);
    });
}

// Reaps whatever ends, until the command does, which /proc then shows no more. Returns its status as waitpid
// gives it; *is_told_to_end becomes true when somebody wanted an end.
int wait_for_command(pid_t command, pid_t driver, bool* is_told_to_end) {
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended == command) {
            hide_from_proc(command);
            return status;
        }
        if (ended == driver && exit_status(status) != 0) {
            const std::string number = std::to_string(exit_status(status));
            print_refusal(("the driver server ended with status " + number).c_str());
        }
        if (ended <= 0) {
            *is_told_to_end |= take_signal(command);
        }
    }
}

// Waits before the daemon starts again. False when somebody wants an end, or wanted one when the daemon
// ended.
bool rest_before_restart() {
    sigset_t ends = watched_signals();
    sigdelset(&ends, SIGCHLD);
    const timespec rest = {RESTART_SECONDS, 0};
    return sigtimedwait(&ends, nullptr, &rest) < 0;
}

}  // namespace

int run_first_process(const PhoneOptions& options) {
    // As the desk numbers this process, which /proc/self is a link to.
    char number[32] = {};
    (void)!readlink("/proc/self", number, sizeof number - 1);
    UniqueFd listen_fd = listen_for_control(options.socket_name);
    UniqueFd fuse_fd = enter_private_root(options);
    const std::string log_dir = options.data_dir.empty() ? "" : options.data_dir + "/kvdx_logs/dmd_log";
    Pipe placed = make_pipe();
    const pid_t driver = start_process("the driver server", [&] {
        placed.write_end.reset();
        run_driver_server(
            {fuse_fd.get(), listen_fd.get(), placed.read_end.get(), log_dir, options.build_dir});
    });
    // The server alone keeps these, so that they end with it.
    fuse_fd.reset();
    listen_fd.reset();
    placed.read_end.reset();
    place_devices();
    show_in_proc(getpid());
    start_media_server();
    if (options.is_boot) {
        write_file(LOG_PATH, "", 0644);
    }
    placed.write_end.reset();

    Log log;
    if (options.is_boot) {
        log = start_log(options, std::string("The log is in /proc/") + number + "/root" + LOG_PATH + "\n");
    }
    pid_t command = start_command(options, log);
    bool is_told_to_end = forward_held_signals(command);
    int status = wait_for_command(command, driver, &is_told_to_end);
    while (options.is_boot && WIFSIGNALED(status) && !is_told_to_end) {
        dprintf(log.lines.get(), "phone: dmd was ended by signal %d, init starts it again in %d s\n",
                WTERMSIG(status), RESTART_SECONDS);
        if (!rest_before_restart()) {
            break;
        }
        command = start_command(options, log);
        is_told_to_end = forward_held_signals(command);
        status = wait_for_command(command, driver, &is_told_to_end);
    }
    if (options.is_boot) {
        end_log(&log);
    }
    return exit_status(status);
}

}  // namespace phone
