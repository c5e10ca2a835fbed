// The daemon that ships, started and followed by its log.
#include "bench/daemon.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "clients/client_table.h"
#include "emulator/control_client.h"

namespace bench {

namespace {

constexpr char CONFIGURATION[] = "/system/etc/device_state_monitor.conf";
constexpr size_t CONFIGURATION_SIZE = 61000;
constexpr std::chrono::minutes LIMIT(1);

void ask(const std::vector<std::string>& words) {
    std::string answer;
    if (!phone::request("", words, &answer)) {
        throw std::runtime_error(words[0] + ": " + answer);
    }
}

std::string section(const std::string& name, int triggers) {
    std::string text = "[" + name + "]\nalgo_type listen\nclient_name " + name +
                       "\ndevice_name unit\nnum_triggers " + to_string(triggers) + "\n";
    for (int i = 0; i < triggers; ++i) {
        text +=
            "error_no " + to_string(FIRST_NUMBER + i) + "\nrunning_test_switch on\naction " + name + "+0\n";
    }
    return text;
}

}  // namespace

const char* const CLIENT = "dsm_camera_user";

void configure_all_clients(int triggers, bool full) {
    std::string text;
    for (const dmd_client_info& client : default_clients) {
        text += section(client.name, triggers);
    }
    if (text.size() > CONFIGURATION_SIZE) {
        throw std::runtime_error("the configuration has become too large");
    }
    const std::string comment = "# " + std::string(61, '-') + "\n";
    while (full && text.size() + comment.size() <= CONFIGURATION_SIZE) {
        text += comment;
    }
    write_file(CONFIGURATION, text);
}

void configure_one_client() {
    write_file(CONFIGURATION, section(CLIENT, MOST_TRIGGERS));
}

Daemon::Daemon(bool commercial, unsigned reading_pause_us)
    : commercial_(commercial), reading_pause_us_(reading_pause_us) {
    ask({"property", "persist.sys.qelvan.debug.on", commercial ? "0" : "1"});
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const std::string program = build_folder() + "dmd";
    char* arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    start_ = clock::now();
    const int status = posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (status != 0) {
        throw std::runtime_error(program + " does not start");
    }
    follower_ = std::thread(&Daemon::follow, this, ends[0]);
}

Daemon::~Daemon() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    follower_.join();
}

void Daemon::follow(int log) {
    std::string text;
    char piece[65536];
    ssize_t got;
    while ((got = read(log, piece, sizeof piece)) > 0) {
        const auto now = clock::now();
        text.append(piece, static_cast<size_t>(got));
        std::unique_lock<std::mutex> lock(mutex_);
        size_t at = 0;
        for (size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
            lines_.emplace_back(now, text.substr(at, end - at));
        }
        text.erase(0, at);
        more_.notify_one();
        lock.unlock();
        if (reading_pause_us_ > 0) {
            usleep(reading_pause_us_);
        }
    }
    close(log);
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    more_.notify_one();
}

clock::time_point Daemon::wait_for(std::vector<std::string> texts) {
    clock::time_point when;
    std::unique_lock<std::mutex> lock(mutex_);
    while (!texts.empty()) {
        if (!more_.wait_for(lock, LIMIT, [this] { return ended_ || !lines_.empty(); })) {
            throw std::runtime_error("the daemon does not log " + texts[0]);
        }
        if (lines_.empty()) {
            throw std::runtime_error("the daemon has ended");
        }
        const auto& [then, line] = lines_.front();
        for (size_t i = 0; i < texts.size(); ++i) {
            if (line.find(texts[i]) != std::string::npos) {
                texts.erase(texts.begin() + static_cast<std::ptrdiff_t>(i));
                when = then;
                break;
            }
        }
        lines_.pop_front();
    }
    return when;
}

clock::time_point Daemon::wait_until_ready() {
    return wait_for({WAITS, commercial_ ? "] command server init success" : "_detect_thread start!"});
}

void require_phone() {
    ask({"property", "dev.bootcomplete"});
}

void report(int number, const std::string& text) {
    ask({"report", CLIENT, to_string(number), text});
}

}  // namespace bench
