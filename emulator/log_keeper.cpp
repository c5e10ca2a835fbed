// Reading the daemon's lines, keeping them, and showing them.
#include "emulator/log_keeper.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "emulator/phone_view.h"

namespace phone {

namespace {

using Clock = std::chrono::steady_clock;

// Bytes of a log before it is renamed: with the one before, a quarter of the root's memory.
constexpr off_t LOG_MAX = 32 * 1024 * 1024;
// Bytes of a start's lines that the next log begins with.
constexpr size_t START_MAX_BYTES = 256 * 1024;

// The daemon has started when it is silent after its second message, or has had time to.
constexpr std::string_view STARTED = "[M/main] Qelvan Device monitor daemon started";
constexpr std::string_view STARTING = "[M/main] Enter daemon main loop";
constexpr auto START_MAX = std::chrono::seconds(3);
constexpr int LOOK_MS = 50;
constexpr int QUIET_LOOKS = 6;

constexpr std::string_view NO_SECTION = "[M/listen_client_init] can't find client ";
// Characters of a line's time, with the blank behind it.
constexpr size_t TIME_LENGTH = 19;

bool has(std::string_view line, std::string_view text) {
    return line.find(text) != std::string_view::npos;
}

std::string time_now() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char text[32];
    const size_t length = strftime(text, sizeof text, "%m-%d %H:%M:%S", &local);
    snprintf(text + length, sizeof text - length, ".%03d ", static_cast<int>(now.tv_nsec / 1000000));
    return text;
}

// Takes the whole lines from the beginning of `text`.
template <typename Take>
void take_lines(std::string* text, Take take) {
    size_t begin = 0;
    for (size_t end = 0; (end = text->find('\n', begin)) != std::string::npos; begin = end + 1) {
        take(std::string_view(*text).substr(begin, end + 1 - begin));
    }
    text->erase(0, begin);
}

class LogKeeper {
  public:
    LogKeeper() { open_file(); }

    void run(int lines) {
        std::string received;
        char piece[65536];
        ssize_t got = 0;
        while ((got = read(lines, piece, sizeof piece)) > 0) {
            received.append(piece, static_cast<size_t>(got));
            take_lines(&received, [this](std::string_view line) { keep(line); });
        }
        if (!received.empty()) {
            keep(received + "\n");
        }
    }

  private:
    void open_file() { file_.reset(open(LOG_PATH, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644)); }

    void write_file(const std::string& text) const { (void)!write(file_.get(), text.data(), text.size()); }

    void keep(std::string_view line) {
        const std::string timed = time_now().append(line);
        struct stat status = {};
        if (fstat(file_.get(), &status) == 0 && status.st_size >= LOG_MAX) {
            rename(LOG_PATH, (std::string(LOG_PATH) + ".old").c_str());
            open_file();
            write_file(start_ + LOG_GOES_ON);
        }
        write_file(timed);
        if (has(line, STARTED)) {
            start_.clear();
            start_end_ = Clock::time_point::max();
        } else if (has(line, STARTING)) {
            start_end_ = Clock::now() + START_MAX;
        }
        if (Clock::now() < start_end_ && start_.size() + timed.size() <= START_MAX_BYTES) {
            start_ += timed;
        }
    }

    UniqueFd file_;
    std::string start_;  // the lines of the daemon's latest start
    Clock::time_point start_end_ = Clock::time_point::min();
};

class LogDisplay {
  public:
    LogDisplay(const std::string& head, const std::string& banner)
        : banner_(banner), folds_(isatty(STDOUT_FILENO) != 0) {
        show(head);
    }

    void run(int keeper) {
        LogReader log("");
        std::string text;
        bool is_over = false;
        while (!is_over) {
            pollfd end = {keeper, 0, 0};
            is_over = poll(&end, 1, LOOK_MS) > 0;
            const std::string more = log.read_more();
            quiet_looks_ = more.empty() ? quiet_looks_ + 1 : 0;
            text += more;
            take_lines(&text, [this](std::string_view line) { take(line); });
            if (is_starting_ &&
                ((has_started_ && quiet_looks_ >= QUIET_LOOKS) || Clock::now() > start_end_)) {
                tell_folded();
                show(banner_);
                is_starting_ = false;
            }
        }
        tell_folded();
    }

  private:
    void take(std::string_view line) {
        has_started_ = has_started_ || has(line, STARTING);
        if (folds_ && has(line, NO_SECTION)) {
            ++folded_;
            folded_time_ = line.substr(0, TIME_LENGTH);
            return;
        }
        if (!is_starting_) {
            tell_folded();
        }
        show(line);
    }

    void tell_folded() {
        if (folded_ > 0) {
            show(folded_time_ + std::to_string(folded_) +
                 " clients have no listen section; phone log has a line for each\n");
        }
        folded_ = 0;
    }

    static void show(std::string_view text) {
        while (!text.empty()) {
            const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
            if (written <= 0 && errno != EINTR) {
                return;
            }
            text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(written, 0)));
        }
    }

    const std::string banner_;
    const bool folds_;
    bool is_starting_ = true;
    bool has_started_ = false;
    const Clock::time_point start_end_ = Clock::now() + START_MAX;
    int quiet_looks_ = 0;  // since the log last grew
    int folded_ = 0;
    std::string folded_time_;
};

}  // namespace

void run_log_keeper(const UniqueFd& lines) {
    LogKeeper().run(lines.get());
    _exit(0);
}

void show_log(const UniqueFd& keeper, const std::string& head, const std::string& banner) {
    signal(SIGPIPE, SIG_IGN);
    LogDisplay(head, banner).run(keeper.get());
}

}  // namespace phone
