// The daemon that ships, configured, started and followed by its log.
#include "bench/daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <stdexcept>

#include "emulator/control_client.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::minutes LIMIT(1);

// The sum of the numbers behind the keys in a file of the kernel's.
long sum_of(const fs::path& path, std::initializer_list<const char*> keys) {
    long sum = 0;
    size_t found = 0;
    std::ifstream file(path);
    for (std::string word; file >> word;) {
        long number = 0;
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

}  // namespace

void write_configuration(const std::vector<Section>& sections) {
    std::string text;
    for (const Section& section : sections) {
        text += "[" + section.client + "]\nalgo_type listen\nclient_name " + section.client +
                "\ndevice_name " + section.device + "\nnum_triggers " + to_string(section.triggers) + "\n";
        for (int i = 0; i < section.triggers; ++i) {
            text += "error_no " + to_string(section.first_number + i) + "\nrunning_test_switch on\naction " +
                    section.client + "+" + to_string(section.dump_slot) + "\n";
        }
    }
    write_file("/system/etc/device_state_monitor.conf", text);
}

Daemon::Daemon(bool commercial, unsigned reading_pause_us)
    : commercial_(commercial), reading_pause_us_(reading_pause_us) {
    ask({"property", "persist.sys.qelvan.debug.on", commercial ? "0" : "1"});
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    log_.reset(ends[0]);
    const UniqueFd write_end(ends[1]);
    const std::string program = build_folder() + "dmd";
    char* arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, write_end.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, write_end.get(), STDERR_FILENO);
    const int status = posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (status != 0) {
        throw std::runtime_error(program + " does not start");
    }
}

Daemon::~Daemon() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

std::optional<std::string> Daemon::next_line(std::chrono::milliseconds patience) {
    size_t end = 0;
    while ((end = unread_.find('\n')) == std::string::npos) {
        pollfd log = {log_.get(), POLLIN, 0};
        if (poll(&log, 1, static_cast<int>(patience.count())) == 0) {
            return std::nullopt;
        }
        usleep(reading_pause_us_);
        char piece[65536];
        const ssize_t got = read(log_.get(), piece, sizeof piece);
        if (got <= 0) {
            throw std::runtime_error("the daemon has ended");
        }
        last_read_ = clock::now();
        unread_.append(piece, static_cast<size_t>(got));
    }
    std::string line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return line;
}

clock::time_point Daemon::wait_for(std::vector<std::string> texts) {
    while (!texts.empty()) {
        const auto line = next_line(LIMIT);
        if (!line) {
            throw std::runtime_error("the daemon does not log " + texts[0]);
        }
        const auto stands = [&](const std::string& text) { return line->find(text) != std::string::npos; };
        const auto found = std::find_if(texts.begin(), texts.end(), stands);
        if (found != texts.end()) {
            texts.erase(found);
        }
    }
    return last_read_;
}

void Daemon::wait_until_ready() {
    wait_for({WAITS, commercial_ ? "] command server init success" : "_detect_thread start!"});
}

Usage usage_of(const Daemon& daemon) {
    const fs::path process = "/.phone/proc/" + to_string(daemon.pid());
    Usage usage;
    for (const auto& task : fs::directory_iterator(process / "task")) {
        ++usage.threads;
        usage.switches +=
            sum_of(task.path() / "status", {"voluntary_ctxt_switches:", "nonvoluntary_ctxt_switches:"});
        double nanoseconds = 0;
        if (!(std::ifstream(task.path() / "schedstat") >> nanoseconds)) {
            throw std::runtime_error("the kernel does not tell the processor time of a thread");
        }
        usage.processor += nanoseconds / 1e9;
    }
    usage.descriptors = std::distance(fs::directory_iterator(process / "fd"), {});
    const fs::path memory = process / "smaps_rollup";
    usage.resident = sum_of(memory, {"Rss:"});
    usage.proportional = sum_of(memory, {"Pss:"});
    usage.own = sum_of(memory, {"Private_Clean:", "Private_Dirty:"});
    return usage;
}

std::string ask(const std::vector<std::string>& words) {
    std::string answer;
    if (!phone::request("", words, &answer)) {
        throw std::runtime_error(words[0] + ": " + answer);
    }
    return answer;
}

void report(const std::string& client, int number, const std::string& text) {
    ask({"report", client, to_string(number), text});
}

}  // namespace bench
