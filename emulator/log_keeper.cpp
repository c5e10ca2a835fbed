// Reading the daemon's lines, keeping them, and showing them.
#include "emulator/log_keeper.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace phone {

namespace {

// Bytes of a log before it is renamed: with the one before, a quarter of the root's memory.
constexpr off_t LOG_MAX = 32 * 1024 * 1024;

// The daemon has started when it has been silent for so long after this message.
constexpr std::string_view STARTING = "[M/main] Enter daemon main loop";
constexpr int SILENCE_MS = 300;
// What it never says if it is busy from the start.
constexpr std::chrono::seconds START_MAX{3};

constexpr std::string_view NO_SECTION = "[M/listen_client_init] can't find client ";

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

class LogKeeper {
  public:
    explicit LogKeeper(const std::string& banner) : banner_(banner), folds_(isatty(STDOUT_FILENO) != 0) {
        open_file();
    }

    void run(int lines) {
        std::string received;
        char piece[65536];
        for (;;) {
            pollfd ready = {lines, POLLIN, 0};
            const int count = poll(&ready, 1, is_starting_ ? SILENCE_MS : -1);
            if (count == 0 || (is_starting_ && std::chrono::steady_clock::now() > start_end_)) {
                end_start();
            }
            if (count <= 0) {
                continue;
            }
            const ssize_t got = read(lines, piece, sizeof piece);
            if (got == 0) {
                break;
            }
            received.append(piece, static_cast<size_t>(std::max<ssize_t>(got, 0)));
            size_t begin = 0;
            for (size_t end = 0; (end = received.find('\n', begin)) != std::string::npos; begin = end + 1) {
                take_line(std::string_view(received).substr(begin, end + 1 - begin));
            }
            received.erase(0, begin);
        }
        if (!received.empty()) {
            take_line(received + "\n");
        }
    }

  private:
    void open_file() { file_.reset(open(LOG_PATH, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644)); }

    void take_line(std::string_view line) {
        const std::string timed = time_now().append(line);
        struct stat status = {};
        if (fstat(file_.get(), &status) == 0 && status.st_size >= LOG_MAX) {
            rename(LOG_PATH, (std::string(LOG_PATH) + ".old").c_str());
            open_file();
        }
        (void)!write(file_.get(), timed.data(), timed.size());
        if (line.find(STARTING) != std::string_view::npos) {
            is_starting_ = true;
            start_end_ = std::chrono::steady_clock::now() + START_MAX;
        }
        if (folds_ && is_starting_ && line.find(NO_SECTION) != std::string_view::npos) {
            ++folded_;
        } else {
            show(timed);
        }
    }

    // The banner is shown once, although the daemon may start again.
    void end_start() {
        is_starting_ = false;
        if (folded_ > 0) {
            show(time_now() + std::to_string(folded_) +
                 " clients have no listen section; phone log has a line for each\n");
        }
        folded_ = 0;
        show(banner_);
        banner_.clear();
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

    std::string banner_;
    const bool folds_;
    UniqueFd file_;
    bool is_starting_ = false;
    std::chrono::steady_clock::time_point start_end_;
    int folded_ = 0;
};

}  // namespace

void run_log_keeper(UniqueFd lines, const std::string& banner) {
    signal(SIGPIPE, SIG_IGN);
    LogKeeper(banner).run(lines.get());
    _exit(0);
}

}  // namespace phone
