// Looking for the daemon's messages about a request, and for the files that it wrote.
#include "emulator/outcome.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

namespace phone {

namespace {

using namespace std::chrono_literals;

constexpr auto WAIT = 2s;
constexpr auto BETWEEN_LOOKS = 20ms;
// The daemon has done what has no message at its end when it is silent for so many looks.
constexpr int QUIET_LOOKS = 15;

// As the daemon's threads say it.
constexpr char STARTED[] = "[M/main] Qelvan Device monitor daemon started";
constexpr char LISTENS[] = "[M/listen_server] Enter select";
constexpr char LISTENS_TO_NOBODY[] = "dmd listen no client wait broadcast";
constexpr char COMMAND_DONE[] = "[M/dmd_cmd_thread] Removing client on fd ";
constexpr char COMBINATION[] = "dmd_key_dispatch combination_key:";
constexpr char NO_COMBINATION[] = "unknown combination_key!!";
constexpr char NOT_RUNNING[] = "the daemon is not running";
constexpr char AT_WORK[] = "the daemon is at work on it; phone log -f shows what it does";

// Seconds between two ticks of the daemon's sampling periods.
constexpr long TICK_SECONDS = 5;
// Names that are listed of the new files of one kind.
constexpr size_t NAMES_MAX = 3;

constexpr size_t NOWHERE = std::string::npos;

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (size_t i = 0; i < std::min(names.size(), NAMES_MAX); ++i) {
        text += (i == 0 ? "" : ", ") + names[i];
    }
    return names.size() <= NAMES_MAX ? text
                                     : text + " and " + std::to_string(names.size() - NAMES_MAX) + " more";
}

}  // namespace

Outcome::Outcome(const std::string& socket_name)
    : root_(root_of_phone(socket_name)), before_(reports_in(root_)), log_(root_), started_(log_.read_more()) {
    const size_t start = started_.rfind(STARTED);
    started_.erase(0, start == NOWHERE ? 0 : start);
}

template <typename Look, typename Late>
std::string Outcome::wait(Look look, Late late) {
    const auto end = std::chrono::steady_clock::now() + WAIT;
    for (;;) {
        const std::string more = log_.read_more();
        quiet_looks_ = more.empty() ? quiet_looks_ + 1 : 0;
        news_ += more;
        std::string line = look();
        if (!line.empty()) {
            return line;
        }
        if (!log_.is_kept()) {
            return "only a phone that was booted with 'phone boot' knows what becomes of it";
        }
        if (std::chrono::steady_clock::now() >= end) {
            return late();
        }
        std::this_thread::sleep_for(BETWEEN_LOOKS);
    }
}

bool Outcome::is_quiet() const {
    return quiet_looks_ >= QUIET_LOOKS;
}

// The daemon may be starting just now.
bool Outcome::has_started_with(const std::string& text) const {
    return started_.find(text) != NOWHERE || news_.find(text) != NOWHERE;
}

size_t Outcome::find(const std::string& text, size_t from) const {
    return from == NOWHERE ? NOWHERE : news_.find(text, from);
}

size_t Outcome::count(const std::string& text) const {
    size_t times = 0;
    for (size_t at = news_.find(text); at != NOWHERE; at = news_.find(text, at + 1)) {
        ++times;
    }
    return times;
}

// The files that are new or have changed, records first. Empty when there are none.
std::string Outcome::list_new_reports() const {
    std::vector<std::string> records;
    std::vector<std::string> dumps;
    for (const auto& [name, state] : reports_in(root_)) {
        const auto old = before_.find(name);
        if (old == before_.end() || old->second != state) {
            (name.rfind("dmd_record_", 0) == 0 ? records : dumps).push_back(name);
        }
    }
    return joined(records) + (records.empty() || dumps.empty() ? "" : ", ") + joined(dumps);
}

std::string Outcome::of_report(const std::string& client, const std::string& error, size_t times,
                               size_t size) {
    const std::string has_error = "[M/listen_server] " + client + " has error (" + error + ") ";
    const auto look = [&]() -> std::string {
        const size_t reported = count(has_error + "reported");
        const size_t ignored = count(has_error + "ignored");
        const size_t last = news_.rfind(has_error);
        if (reported + ignored >= times && find(LISTENS, last) != NOWHERE) {
            if (reported == 0) {
                return "no trigger for " + error + ": cleared";
            }
            const std::string files = list_new_reports();
            if (files.empty()) {
                return "there is a trigger for " + error + ", but it wrote no report; phone log --client " +
                       client + " shows what it did";
            }
            const std::string finish = client + " finish dump ";
            const size_t dumped = find(finish);
            const size_t taken =
                dumped == NOWHERE ? size : strtoul(news_.c_str() + dumped + finish.size(), nullptr, 10);
            return "reported: " + files +
                   (taken < size ? "; of the text's " + std::to_string(size) + " bytes the daemon takes " +
                                       std::to_string(taken)
                                 : "");
        }
        if (!has_daemon(root_)) {
            return std::string(NOT_RUNNING) + "; the driver keeps the error";
        }
        if (has_started_with("can't find client " + client + "'s config.")) {
            return client + " has no listen section: nobody reads it";
        }
        return "";
    };
    return wait(look, [&]() -> std::string {
        const size_t begun = count(has_error);
        if (begun > 0) {
            return (times > 1 ? std::to_string(begun) + " of " + std::to_string(times) + " so far; " : "") +
                   AT_WORK;
        }
        return has_started_with("lclient " + client + " init success")
                   ? "the daemon has not come to it within 2 seconds; phone log -f shows what it does"
                   : "the daemon does not listen to " + client + " yet; phone log -f shows what it does";
    });
}

std::string Outcome::of_state(const std::string& client, const std::string& state) {
    const std::string has_state = "client " + client + "'s error (" + state + ") ";
    const std::string polled = "pclient " + client + " init success";
    const auto look = [&]() -> std::string {
        if (find(has_state + "ignored") != NOWHERE) {
            return "no trigger for " + state + ": nothing is done";
        }
        if (find(has_state + "occured") != NOWHERE && is_quiet()) {
            const std::string files = list_new_reports();
            return files.empty() ? "" : "reported: " + files;
        }
        if (!has_daemon(root_)) {
            return NOT_RUNNING;
        }
        const bool is_up = has_started_with(LISTENS) || has_started_with(LISTENS_TO_NOBODY);
        return is_up && is_quiet() && !has_started_with(polled)
                   ? client + " has no poll section: nobody asks for its state"
                   : "";
    };
    return wait(look, [&]() -> std::string {
        if (find(has_state + "occured") != NOWHERE) {
            return AT_WORK;
        }
        const std::string& text = started_.find(polled) != NOWHERE ? started_ : news_;
        const size_t at = text.find("sample period-", text.find(polled));
        const long ticks = at == NOWHERE ? 0 : strtol(text.c_str() + text.find('-', at) + 1, nullptr, 10);
        return "the daemon asks for it every " + std::to_string(ticks * TICK_SECONDS) + " s";
    });
}

std::string Outcome::of_command(const std::string& client, const std::string& number) {
    const std::string received = "Received msg - name:" + client + " data:" + number;
    std::string outcome;
    const auto look = [&]() -> std::string {
        const size_t begin = find(received);
        const size_t end = find(COMMAND_DONE, begin);
        if (end == NOWHERE) {
            return "";
        }
        const std::string files = list_new_reports();
        if (!files.empty()) {
            return "reported: " + files;
        }
        const bool said_something = news_.find(client, begin + received.size()) < end;
        return said_something ? "nothing was written; phone log --client " + client + " shows why"
                              : client + " has no force-dump slot 0: nothing is dumped";
    };
    outcome = wait(look, [&]() -> std::string { return AT_WORK; });
    return find(client + " is not found in dmd client list") != NOWHERE ? "" : outcome;
}

std::string Outcome::of_keys(const std::function<bool()>& are_read) {
    const auto look = [&]() -> std::string {
        const std::string files = list_new_reports();
        if (!is_quiet() || (files.empty() && (find(COMBINATION) != NOWHERE || !are_read()))) {
            return "";
        }
        if (!files.empty()) {
            return "reported: " + files;
        }
        return find(NO_COMBINATION) != NOWHERE
                   ? "the daemon knows no such combination"
                   : "no combination yet: the daemon compares six events, and forgets them after a pause";
    };
    return wait(look, [&]() -> std::string {
        return are_read()
                   ? "a combination; phone log -f shows what the daemon does about it"
                   : "the daemon has not come to the keys within 2 seconds; phone log -f shows what it does";
    });
}

}  // namespace phone
