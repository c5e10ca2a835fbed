// The processes of a phone. `phone` itself stays outside and waits; its child is the first process of a new
// process namespace, so that everything in the phone ends with it, and it ends with `phone`.
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "emulator/control_client.h"
#include "emulator/driver_server.h"
#include "emulator/files.h"
#include "emulator/log_keeper.h"
#include "emulator/phone.h"
#include "emulator/phone_view.h"
#include "emulator/refusal.h"
#include "platform/owned.h"

namespace phone {

namespace {

constexpr int STATUS_CANNOT_RUN = 126;
constexpr int STATUS_NOT_FOUND = 127;
constexpr int STATUS_SIGNAL = 128;

// As init waits before it starts a service again.
constexpr int RESTART_SECONDS = 5;
// Bytes of a record file that reports are counted in; the daemon's own have half a MiB and the last report.
constexpr size_t RECORD_MAX = 64 * 1024 * 1024;
constexpr char REPORT_HEAD[] = "========Device Bugreport========\n";

constexpr int FORWARDED_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// Variables of the caller that the command sees too.
constexpr const char* PASSED_VARIABLES[] = {
    "TERM", "TZ", "ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LLVM_PROFILE_FILE"};
constexpr char PASSED_PREFIX[] = "GTEST_";

// The signal mask that `phone` was started with; the command gets it back.
sigset_t original_mask;

sigset_t watched_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    for (const int number : FORWARDED_SIGNALS) {
        sigaddset(&set, number);
    }
    return set;
}

// From here on signals are taken one by one with sigwaitinfo.
void hold_signals() {
    const sigset_t set = watched_signals();
    sigprocmask(SIG_BLOCK, &set, &original_mask);
    // A caller that ignores SIGCHLD would have the kernel throw exit statuses away.
    signal(SIGCHLD, SIG_DFL);
}

int exit_status(int status) {
    return WIFSIGNALED(status) ? STATUS_SIGNAL + WTERMSIG(status) : WEXITSTATUS(status);
}

// Waits for the next signal. What somebody sent goes on to `receiver`; what the terminal sent has reached all
// processes of the foreground already, but for SIGHUP: a closed terminal tells the leader of its session
// only. Returns whether the signal means the end.
bool take_signal(pid_t receiver) {
    const sigset_t set = watched_signals();
    siginfo_t info = {};
    const int number = sigwaitinfo(&set, &info);
    if (number == SIGHUP || (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL)) {
        kill(receiver, number);
    }
    return number > 0 && number != SIGCHLD;
}

// To be called after the fork of `receiver`: what the terminal sent before is held here and nowhere else.
// What came in between `receiver` holds too, and holds once. Returns whether there was any.
bool forward_held_signals(pid_t receiver) {
    sigset_t set = watched_signals();
    sigdelset(&set, SIGCHLD);
    const timespec at_once = {};
    bool any = false;
    for (int number = sigtimedwait(&set, nullptr, &at_once); number > 0;
         number = sigtimedwait(&set, nullptr, &at_once)) {
        kill(receiver, number);
        any = true;
    }
    return any;
}

// A shell in the phone makes itself the foreground of the terminal and cannot undo that at its end: its
// process namespace has no number for the caller's process group.
void take_terminal_back() {
    const UniqueFd terminal(open("/dev/tty", O_RDWR | O_CLOEXEC));
    const pid_t foreground = terminal.valid() ? tcgetpgrp(terminal.get()) : -1;
    // A group that has processes is another job, which the caller's shell put there.
    if (foreground <= 0 || kill(-foreground, 0) == 0 || errno != ESRCH) {
        return;
    }
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTTOU);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    tcsetpgrp(terminal.get(), getpgrp());
}

// Waits for a child of this process. Returns its exit status.
int wait_for(pid_t child) {
    forward_held_signals(child);
    for (;;) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            take_terminal_back();
            return exit_status(status);
        }
        take_signal(child);
    }
}

// In a new user namespace the caller is root.
void become_root(uid_t user, gid_t group) {
    write_existing("/proc/self/setgroups", "deny");
    write_existing("/proc/self/uid_map", "0 " + std::to_string(user) + " 1\n");
    write_existing("/proc/self/gid_map", "0 " + std::to_string(group) + " 1\n");
}

struct Pipe {
    UniqueFd read_end;
    UniqueFd write_end;
};

Pipe make_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw refusal_errno("no pipe");
    }
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

// What runs in a phone must not outlive who started it, however that one ends; the starter alone holds the
// other end of the pipe `alive_fd`.
void end_with_parent(int alive_fd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd parent = {alive_fd, 0, 0};
    if (poll(&parent, 1, 0) != 0) {
        _exit(STATUS_NO_PHONE);
    }
}

// Starts the process that stands in for the phone's media service, which the daemon looks for by its name. It
// does nothing, holds nothing and ends with the phone. Returns when it is in place.
void start_media_server() {
    Pipe ready = make_pipe();
    const pid_t server = fork();
    if (server < 0) {
        throw refusal_errno("cannot start the media server");
    }
    if (server == 0) {
        setsid();
        prctl(PR_SET_NAME, "mediaserver");
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        close_range(0, ~0U, 0);
        for (;;) {
            pause();
        }
    }
    ready.write_end.reset();
    char byte;
    (void)!read(ready.read_end.get(), &byte, 1);
    show_in_proc(server);
}

// The phone's log during a boot. `lines` is the end that the daemon writes to.
struct Log {
    pid_t keeper = -1;
    UniqueFd lines;
};

Log start_log(const std::string& banner) {
    Pipe lines = make_pipe();
    const pid_t keeper = fork();
    if (keeper < 0) {
        throw refusal_errno("cannot start the keeper of the log");
    }
    if (keeper == 0) {
        lines.write_end.reset();
        run_log_keeper(std::move(lines.read_end), banner);
    }
    return {keeper, std::move(lines.write_end)};
}

// Lets the keeper come to the end of the log, which others may hold open.
void end_log(Log* log) {
    log->lines.reset();
    for (int tries = 0; tries < 100 && waitpid(log->keeper, nullptr, WNOHANG) == 0; ++tries) {
        usleep(10000);
    }
}

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

pid_t start_command(const PhoneOptions& options, const Log& log) {
    const pid_t command = fork();
    if (command < 0) {
        throw refusal_errno("cannot start the command");
    }
    if (command == 0) {
        if (log.lines.valid()) {
            dup2(log.lines.get(), STDERR_FILENO);
        }
        show_in_proc(getpid());
        become_command(options.socket_name, options.command);
    }
    return command;
}

// Reaps whatever ends, until the command does. Returns its status as waitpid gives it; *is_told_to_end
// becomes true when somebody wanted an end.
int wait_for_command(pid_t command, pid_t driver, bool* is_told_to_end) {
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended == command) {
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

// The first process: starts the driver server, the media server and the command, and reaps whatever ends,
// until the command does. Returns the command's exit status.
int run_first_process(const PhoneOptions& options) {
    // As the desk numbers this process, which /proc/self is a link to.
    char number[32] = {};
    (void)!readlink("/proc/self", number, sizeof number - 1);
    UniqueFd listen_fd = listen_for_control(options.socket_name);
    UniqueFd fuse_fd = enter_private_root(options);
    const std::string log_dir = options.data_dir.empty() ? "" : options.data_dir + "/kvdx_logs/dmd_log";
    Pipe placed = make_pipe();
    const pid_t driver = fork();
    if (driver < 0) {
        throw refusal_errno("cannot start the driver server");
    }
    if (driver == 0) {
        placed.write_end.reset();
        run_driver_server(
            {fuse_fd.get(), listen_fd.get(), placed.read_end.get(), log_dir, options.build_dir});
    }
    // The server alone keeps these, so that they end with it.
    fuse_fd.reset();
    listen_fd.reset();
    placed.read_end.reset();
    place_devices();
    show_in_proc(getpid());
    start_media_server();
    placed.write_end.reset();

    Log log;
    if (options.is_boot) {
        printf("The log is in /proc/%s/root%s\n", number, LOG_PATH);
        fflush(stdout);
        log = start_log(options.banner);
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
        status = wait_for_command(command, driver, &is_told_to_end);
    }
    if (options.is_boot) {
        end_log(&log);
        if (options.data_dir.empty()) {
            tell_discarded();
        }
    }
    return exit_status(status);
}

// Without the last two, root in a phone could rename the desk and leave shared memory there.
constexpr int NAMESPACES = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWUTS | CLONE_NEWIPC;

pid_t clone_with(unsigned long namespaces) {
    // As fork, but with namespaces of its own from the start. glibc's fork has no way to say so.
    return static_cast<pid_t>(syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

// The form that exec takes its words in.
std::vector<char*> pointers(std::vector<std::string>* words) {
    std::vector<char*> out;
    out.reserve(words->size() + 1);
    for (std::string& word : *words) {
        out.push_back(word.data());
    }
    out.push_back(nullptr);
    return out;
}

bool has_other_user_namespace(pid_t pid) {
    struct stat theirs = {};
    struct stat ours = {};
    const std::string path = "/proc/" + std::to_string(pid) + "/ns/user";
    return stat(path.c_str(), &theirs) == 0 && stat("/proc/self/ns/user", &ours) == 0 &&
           theirs.st_ino != ours.st_ino;
}

}  // namespace

int run_phone(const PhoneOptions& options) {
    hold_signals();
    Pipe alive = make_pipe();
    const uid_t user = geteuid();
    const gid_t group = getegid();
    bool new_user = false;
    pid_t first = clone_with(NAMESPACES);
    if (first < 0 && errno == EPERM) {
        new_user = true;
        first = clone_with(NAMESPACES | CLONE_NEWUSER);
    }
    if (first < 0) {
        throw refusal_errno(
            "cannot make the namespaces of a phone: run phone as root, or allow unprivileged user namespaces "
            "(sysctl user.max_user_namespaces, kernel.unprivileged_userns_clone)");
    }
    if (first != 0) {
        return wait_for(first);
    }
    try {
        alive.write_end.reset();
        end_with_parent(alive.read_end.get());
        alive.read_end.reset();
        close_range(STDERR_FILENO + 1, ~0U, 0);
        if (new_user) {
            become_root(user, group);
        }
        _exit(run_first_process(options));
    } catch (const std::exception& error) {
        print_refusal(error.what());
    }
    _exit(STATUS_NO_PHONE);
}

pid_t first_process_of(const std::string& socket_name) {
    std::string why;
    const UniqueFd connection = connect_to_phone(socket_name, &why);
    if (!connection.valid()) {
        throw Refusal(why);
    }
    // That process made the socket listen, before it gave it to the driver server.
    ucred peer = {};
    socklen_t size = sizeof(peer);
    if (getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0) {
        throw Refusal("cannot tell which process the phone is");
    }
    return peer.pid;
}

[[noreturn]] void run_in_phone(const std::string& socket_name, const std::vector<std::string>& command) {
    const pid_t first = first_process_of(socket_name);
    const UniqueFd phone(static_cast<int>(syscall(SYS_pidfd_open, first, 0)));
    if (!phone.valid()) {
        throw refusal_errno("cannot find the phone's first process");
    }
    // An answer says that the phone is whole. Until then its root may still show the desk, writable.
    std::string answer;
    if (!request(socket_name, {"build-dir"}, &answer)) {
        throw Refusal(answer);
    }
    std::vector<std::string> words = command;
    words[0] = place_in_phone(answer, words[0]);
    hold_signals();
    Pipe alive = make_pipe();
    int namespaces = NAMESPACES;
    if (has_other_user_namespace(first)) {
        namespaces |= CLONE_NEWUSER;
    }
    if (setns(phone.get(), namespaces) != 0) {
        throw refusal_errno("cannot enter the phone (this needs Linux 5.8 or later)");
    }
    const pid_t child = fork();
    if (child < 0) {
        throw refusal_errno("cannot start a command in the phone");
    }
    if (child == 0) {
        alive.write_end.reset();
        end_with_parent(alive.read_end.get());
        become_command(socket_name, words);
    }
    // Not by a return: at exit a sanitizer's leak check would start its helper in the phone's process
    // namespace, where it cannot see this process, and wait for it for ever.
    _exit(wait_for(child));
}

std::string place_in_phone(const std::string& build_dir, const std::string& program) {
    char folder[PATH_MAX];
    const size_t name = program.rfind('/');
    // The links on the way are followed; the program itself may be one that minds the name it is called by.
    if (name == std::string::npos || realpath(program.substr(0, name + 1).c_str(), folder) == nullptr) {
        return program;
    }
    const std::string place = std::string(folder) + program.substr(name);
    if (place.compare(0, build_dir.size() + 1, build_dir + "/") != 0) {
        return program;
    }
    return BUILD_DIR + place.substr(build_dir.size());
}

void become_command(const std::string& socket_name, const std::vector<std::string>& command) {
    std::vector<std::string> variables = {"PATH=/system/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin",
                                          "HOME=/data", std::string(CONTROL_VARIABLE) + "=" + socket_name,
                                          // A phone's C library gives memory back when it is freed. The
                                          // desk's would keep 10 MiB for each thread of the daemon.
                                          "MALLOC_MMAP_THRESHOLD_=49152", "MALLOC_TOP_PAD_=0"};
    for (const char* name : PASSED_VARIABLES) {
        if (const char* value = getenv(name)) {
            variables.push_back(std::string(name) + "=" + value);
        }
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (strncmp(*variable, PASSED_PREFIX, strlen(PASSED_PREFIX)) == 0) {
            variables.emplace_back(*variable);
        }
    }
    std::vector<std::string> words = command;
    std::vector<char*> environment = pointers(&variables);
    const std::vector<char*> arguments = pointers(&words);

    sigprocmask(SIG_SETMASK, &original_mask, nullptr);
    close_range(STDERR_FILENO + 1, ~0U, 0);
    environ = environment.data();
    execvp(arguments[0], arguments.data());
    const int reason = errno;
    const std::string line = command[0] + " cannot be run in the phone: " + strerror(reason) +
                             (reason == ENOENT ? " (a folder of the desk is shown there with --bind)" : "");
    print_refusal(line.c_str());
    _exit(reason == ENOENT ? STATUS_NOT_FOUND : STATUS_CANNOT_RUN);
}

}  // namespace phone
