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
#include "emulator/files.h"
#include "emulator/phone.h"
#include "emulator/refusal.h"
#include "emulator/signals.h"
#include "platform/owned.h"

namespace phone {

namespace {

constexpr int STATUS_CANNOT_RUN = 126;
constexpr int STATUS_NOT_FOUND = 127;

// Variables of the caller that the command sees too.
constexpr const char* PASSED_VARIABLES[] = {
    "TERM", "TZ", "ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LLVM_PROFILE_FILE"};
constexpr char PASSED_PREFIX[] = "GTEST_";

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

// What runs in a phone must not outlive who started it, however that one ends; the starter alone holds the
// other end of the pipe `alive_fd`.
void end_with_parent(int alive_fd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd parent = {alive_fd, 0, 0};
    if (poll(&parent, 1, 0) != 0) {
        _exit(STATUS_NO_PHONE);
    }
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
    std::vector<std::string> variables = {
        std::string("PATH=/system/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin:") + BUILD_DIR,
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

    restore_signals();
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
