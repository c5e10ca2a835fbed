// What it takes to start the daemon, to have it wait, and to hold it.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <stdexcept>

#include "bench/daemon.h"
#include "bench/measure.h"
#include "bench/measurements.h"
#include "clients/client_table.h"
#include "config/settings.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

constexpr size_t PRIVATE_GOAL_KIB = 512;
constexpr int THREADS = 5;  // with the main thread
constexpr unsigned SETTLING_US = 50000;

// What a process has used so far, and what it holds; memory in KiB.
struct Usage {
    int threads = 0;
    size_t switches = 0;
    double processor = 0;  // seconds
    size_t resident = 0, proportional = 0, own = 0;
};

fs::path of_process(pid_t pid) {
    return "/.phone/proc/" + to_string(pid);
}

// The sum of the numbers behind the keys in a file of the kernel's.
size_t sum_of(const fs::path& path, std::initializer_list<const char*> keys) {
    size_t sum = 0, found = 0;
    std::ifstream file(path);
    for (std::string word; file >> word;) {
        size_t number = 0;
        if (std::find(keys.begin(), keys.end(), word) != keys.end() && file >> number) {
            sum += number;
            ++found;
        }
    }
    if (found != keys.size()) {
        throw std::runtime_error(path.string() + " does not tell " + *keys.begin());
    }
    return sum;
}

Usage usage_of(pid_t pid) {
    Usage usage;
    for (const auto& task : fs::directory_iterator(of_process(pid) / "task")) {
        ++usage.threads;
        usage.switches +=
            sum_of(task.path() / "status", {"voluntary_ctxt_switches:", "nonvoluntary_ctxt_switches:"});
        double nanoseconds = 0;
        if (!(std::ifstream(task.path() / "schedstat") >> nanoseconds)) {
            throw std::runtime_error("the kernel does not tell the processor time of a thread");
        }
        usage.processor += nanoseconds / 1e9;
    }
    const fs::path memory = of_process(pid) / "smaps_rollup";
    usage.resident = sum_of(memory, {"Rss:"});
    usage.proportional = sum_of(memory, {"Pss:"});
    usage.own = sum_of(memory, {"Private_Clean:", "Private_Dirty:"});
    return usage;
}

std::string kib(size_t figure) {
    return to_string(figure) + " KiB";
}

// rasdaemon from an unpacked package, at work in this phone as its service runs it.
class Rasdaemon {
  public:
    explicit Rasdaemon(const std::string& folder) {
        if (folder.empty()) {
            why_not_ = "not there";
            return;
        }
        fs::create_directories("/sys/kernel/debug");
        fs::create_directories("/var/lib/rasdaemon");
        if (mount("none", "/sys/kernel/debug", "debugfs", 0, nullptr) != 0 || !fs::exists(TRACE)) {
            return;
        }
        // The kernel has one set of trace events for it. One that nobody uses is left of a run that was
        // ended.
        if (rmdir(EVENTS) != 0 && errno != ENOENT) {
            why_not_ = "is at work already";
            return;
        }
        const std::string program = folder + "/usr/sbin/rasdaemon", libraries = folder + "/usr/lib";
        char* arguments[] = {const_cast<char*>(program.c_str()), const_cast<char*>("-f"),
                             const_cast<char*>("-r"), nullptr};
        posix_spawn_file_actions_t silence;
        posix_spawn_file_actions_init(&silence);
        posix_spawn_file_actions_addopen(&silence, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&silence, STDOUT_FILENO, STDERR_FILENO);
        setenv("LD_LIBRARY_PATH", libraries.c_str(), 1);
        if (posix_spawn(&pid_, arguments[0], &silence, nullptr, arguments, environ) != 0) {
            pid_ = 0;
        }
        unsetenv("LD_LIBRARY_PATH");
        posix_spawn_file_actions_destroy(&silence);
        sleep(2);
        if (pid_ != 0 && waitpid(pid_, nullptr, WNOHANG) != 0) {
            pid_ = 0;
        }
    }
    Rasdaemon(const Rasdaemon&) = delete;
    Rasdaemon& operator=(const Rasdaemon&) = delete;
    ~Rasdaemon() {
        if (pid_ != 0) {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
            rmdir(EVENTS);
        }
        umount("/sys/kernel/debug");
    }

    bool works() const { return pid_ != 0; }
    pid_t pid() const { return pid_; }
    const std::string& why_not() const { return why_not_; }

  private:
    static constexpr char TRACE[] = "/sys/kernel/debug/tracing";
    static constexpr char EVENTS[] = "/sys/kernel/debug/tracing/instances/rasdaemon";

    pid_t pid_ = 0;
    std::string why_not_ = "does not start here";
};

// The libraries that a program names.
std::string libraries_of(const std::string& program) {
    setenv("PROGRAM", program.c_str(), 1);
    run_command(
        "readelf -d \"$PROGRAM\" | sed -n 's/.*NEEDED.*[[]\\(.*\\)[]]/\\1/p' | tr '\\n' ' ' > "
        "/data/libraries");
    std::ifstream file("/data/libraries");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

double stripped_size(const std::string& program, const std::string& strip) {
    time_program({strip, "-o", "/data/stripped", program});
    return static_cast<double>(fs::file_size("/data/stripped"));
}

std::string bytes(double count) {
    return decimal(count, 0) + " bytes";
}

}  // namespace

void measure_start(int rounds) {
    configure_all_clients(MOST_TRIGGERS, true);
    const auto taken =
        compare(rounds, {[] {
                             usleep(SETTLING_US);
                             Daemon daemon(false);
                             const auto end = daemon.wait_until_ready();
                             return std::chrono::duration<double>(end - daemon.start()).count();
                         },
                         [] {
                             usleep(SETTLING_US);  // the driver still takes leave of the last daemon
                             return time_program({"/bin/true"});
                         }});
    add_times("start to waiting, 46 clients, configuration of 61 KB", taken[0].median, "`true`, start to end",
              taken[1]);
}

void measure_idle(unsigned seconds, const std::string& rasdaemon) {
    constexpr int TRIGGERS = 5;
    configure_all_clients(TRIGGERS, false);
    Daemon daemon(false);
    daemon.wait_until_ready();
    const Rasdaemon peer(rasdaemon);
    sleep(1);
    const auto read_both = [&] {
        return std::pair(usage_of(daemon.pid()), peer.works() ? usage_of(peer.pid()) : Usage());
    };
    const auto [before, before_theirs] = read_both();
    sleep(seconds);
    const auto [after, theirs] = read_both();

    const std::string idle = "idle with " + to_string(TRIGGERS) + " triggers a client",
                      while_idle = idle + ", " + to_string(seconds) + " s: ";
    const auto add = [&](const std::string& what, const std::string& ours, const std::string& others,
                         const std::string& ratio, const std::string& goal, bool holds) {
        add_row({what, ours, "rasdaemon", peer.works() ? others : peer.why_not(), peer.works() ? ratio : "",
                 goal, holds});
    };
    const auto add_memory = [&](const std::string& what, size_t ours, size_t others,
                                const std::string& goal) {
        add(idle + ": " + what, kib(ours), kib(others),
            decimal(static_cast<double>(ours) / static_cast<double>(others), 2), goal,
            ours < PRIVATE_GOAL_KIB);
    };
    const size_t switches = after.switches - before.switches;
    const double processor = after.processor - before.processor;
    add(while_idle + "context switches", to_string(switches),
        to_string(theirs.switches - before_theirs.switches), "", "0", switches == 0);
    add(while_idle + "processor time", milliseconds(processor),
        milliseconds(theirs.processor - before_theirs.processor), "", "0", processor == 0);
    add(idle + ": threads", to_string(after.threads), to_string(theirs.threads), "", to_string(THREADS),
        after.threads == THREADS);
    add_memory("resident memory", after.resident, theirs.resident, "");
    add_memory("proportional memory", after.proportional, theirs.proportional, "");
    add_memory("private memory", after.own, theirs.own, "under " + kib(PRIVATE_GOAL_KIB));
}

void measure_memory() {
    configure_all_clients(MOST_TRIGGERS, true);
    Daemon daemon(false);
    daemon.wait_until_ready();
    sleep(1);
    const size_t records = CLIENT_TABLE_ROWS * MOST_TRIGGERS * sizeof(trigger_info) / 1024;
    add_row({"idle with a configuration of 61 KB: private memory", kib(usage_of(daemon.pid()).own),
             "of it the records of its " + to_string(CLIENT_TABLE_ROWS * MOST_TRIGGERS) + " triggers",
             kib(records), "", ""});
}

void measure_size(const std::string& arm_program, const std::string& rasdaemon) {
    const std::string ours = build_folder() + "dmd", theirs = rasdaemon + "/usr/sbin/rasdaemon";
    Row size = {"stripped program, desk", "", "rasdaemon", "not there", "", ""};
    Row libraries = {"its libraries", libraries_of(ours), "rasdaemon", "not there", "", ""};
    const double our_size = stripped_size(ours, "strip");
    size.ours = bytes(our_size);
    if (!rasdaemon.empty()) {
        const double their_size = stripped_size(theirs, "strip");
        size.theirs = bytes(their_size);
        size.ratio = decimal(our_size / their_size, 2);
        libraries.theirs = libraries_of(theirs);
    }
    add_row(size);
    if (!arm_program.empty()) {
        const std::string arm_size = bytes(stripped_size(arm_program, "arm-linux-gnueabihf-strip"));
        add_row({"stripped program, 32-bit ARM", arm_size, "", "", "", ""});
    }
    add_row(libraries);
}

}  // namespace bench
