// Looking for the daemon's messages about a request, and for the files that it wrote.
#include "emulator/outcome.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>

#include "emulator/control_client.h"
#include "emulator/refusal.h"

namespace phone {

namespace {

using namespace std::chrono_literals;

constexpr auto WAIT = 2s;
constexpr auto BETWEEN_LOOKS = 20ms;
// The daemon has done what has no message at its end when it is silent for so many looks.
constexpr int QUIET_LOOKS = 15;

// Lines of the daemon, from behind the time. A text of a driver that is logged has no such beginning.
constexpr char LINE[] = "E/DMD: [M/";
constexpr char STARTED[] = "[M/main] Qelvan Device monitor daemon started";
constexpr char STARTING[] = "[M/main] Enter daemon main loop";
constexpr char NO_CONFIGURATION[] = "[M/main] Parse config file failed";
constexpr char LISTENS[] = "E/DMD: [M/listen_server] Enter select";
constexpr char LISTENS_TO_NOBODY[] = "dmd listen no client wait broadcast";
constexpr char COMMAND_DONE[] = "E/DMD: [M/dmd_cmd_thread] Removing client on fd ";
constexpr char COMBINATION[] = "dmd_key_dispatch combination_key:";
constexpr char NO_COMBINATION[] = "unknown combination_key!!";
// Of a part of a report, and of an archive that lacks members.
constexpr char LOST[] = " is cut or l";
constexpr char SAME_NAME[] = " already exists;";
constexpr char NOT_COMPRESSED[] = " is not compressed, status ";

// Error number of the dumps that keys make.
constexpr char KEY_NUMBER[] = "20005";

constexpr char NOT_RUNNING[] = "the daemon is not running";
constexpr char AT_WORK[] = "the daemon is at work on it; phone log -f shows what it does";
constexpr char NOT_COME_TO_IT[] =
    "the daemon has not come to it within 2 seconds; phone log -f shows what it does";

// The property that keeps the daemon from starting, seen from the phone's root.
constexpr char DISABLING_PROPERTY[] = "/dev/__properties__/persist.sys.dmd.disable";

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

// The text of a file from that place on.
std::string text_of(const std::string& path, off_t begin) {
    std::ifstream file(path);
    file.seekg(begin);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool begins_with(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

}  // namespace

Outcome::Outcome(const std::string& socket_name, const std::string& client)
    : socket_name_(socket_name),
      client_(client),
      root_(root_of_phone(socket_name)),
      before_(reports_in(root_)),
      log_(root_),
      started_(log_.read_more()) {
    const size_t start = started_.rfind(STARTED);
    started_.erase(0, start == NOWHERE ? 0 : start);
    if (!client_.empty()) {
        ahead_ = ask_driver("handed") + ask_driver("pending");
    }
}

void Outcome::read_log() {
    const std::string more = log_.read_more();
    quiet_looks_ = more.empty() ? quiet_looks_ + 1 : 0;
    news_ += more;
}

template <typename Look, typename Late>
std::string Outcome::wait(Look look, Late late) {
    const auto end = std::chrono::steady_clock::now() + WAIT;
    for (;;) {
        if (access(root_.c_str(), F_OK) != 0) {
            return "the phone has ended";
        }
        read_log();
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

size_t Outcome::ask_driver(const char* what) const {
    std::string answer;
    if (!request(socket_name_, {what, client_}, &answer)) {
        throw Refusal(answer);
    }
    return strtoul(answer.c_str(), nullptr, 10);
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

std::vector<size_t> Outcome::find_all(const std::string& text) const {
    std::vector<size_t> places;
    for (size_t at = find(text); at != NOWHERE; at = find(text, at + 1)) {
        places.push_back(at);
    }
    return places;
}

std::string Outcome::why_idle() const {
    if (!has_daemon(root_)) {
        return NOT_RUNNING;
    }
    std::string disabled;
    std::getline(std::ifstream(root_ + DISABLING_PROPERTY), disabled);
    // It looks at the property when it starts.
    if (disabled == "true" && !has_started_with(STARTING)) {
        return "the daemon is disabled by the property persist.sys.dmd.disable";
    }
    return has_started_with(NO_CONFIGURATION)
               ? "the daemon could not read its configuration, and watches nothing"
               : "";
}

std::string Outcome::written(const std::string& number, size_t begin) const {
    char dump[64];
    snprintf(dump, sizeof dump, "dmd_dump_%05ld_", strtol(number.c_str(), nullptr, 10));
    char head_line[64];
    snprintf(head_line, sizeof head_line, "[Error no]:%02ld\n", strtol(number.c_str(), nullptr, 10));
    std::vector<std::string> records;
    std::vector<std::string> dumps;
    for (const auto& [name, state] : reports_in(root_)) {
        const auto old = before_.find(name);
        if ((old != before_.end() && old->second == state) || state.first == 0) {
            continue;
        }
        if (begins_with(name, "dmd_record_")) {
            const bool has_grown = old != before_.end() && old->second.first < state.first;
            if (text_of(root_ + PHONE_LOG_DIR + "/" + name, has_grown ? old->second.first : 0)
                    .find(head_line) != NOWHERE) {
                records.push_back(name);
            }
        } else if (begins_with(name, dump) && name.find(".gz") != NOWHERE) {
            dumps.push_back(name);
        }
    }
    const std::string files =
        joined(records) + (records.empty() || dumps.empty() ? "" : ", ") + joined(dumps);
    const size_t lost = find(LOST, begin);
    if (lost != NOWHERE) {
        const size_t message = news_.rfind("] ", lost) + 2;
        return news_.substr(message, news_.find('\n', lost) - message) +
               (files.empty() ? "" : "; what there is of it: " + files);
    }
    if (files.empty()) {
        return "";
    }
    return "reported: " + files +
           (find(SAME_NAME, begin) != NOWHERE ? "; one archive is not kept: it has the second of another"
            : find(NOT_COMPRESSED, begin) != NOWHERE ? "; an archive is not compressed, phone log shows why"
                                                     : "");
}

std::string Outcome::judge(const std::string& error, const std::vector<size_t>& lines, bool is_taken,
                           size_t size) const {
    const bool has_trigger = news_.compare(news_.find(") ", lines.back()), 10, ") reported") == 0;
    if (!has_trigger) {
        return "no trigger for " + error +
               (is_taken ? ": cleared" : ", and it cannot be read: the driver keeps it");
    }
    const std::string trigger = "there is a trigger for " + error + ", but ";
    if (!is_taken) {
        return trigger +
               "the driver still has it: no action takes it, or it cannot be read; phone log --client " +
               client_ + " shows which";
    }
    std::string files = written(error, lines.front());
    if (files.empty()) {
        return trigger + "it wrote no report; phone log --client " + client_ + " shows what it did";
    }
    const std::string finish = client_ + " finish dump ";
    const size_t dumped = news_.rfind(finish);
    const size_t taken =
        dumped == NOWHERE ? size : strtoul(news_.c_str() + dumped + finish.size(), nullptr, 10);
    return files + (taken < size ? "; of the text's " + std::to_string(size) + " bytes the daemon takes " +
                                       std::to_string(taken)
                                 : "");
}

std::string Outcome::of_report(const std::string& error, size_t times, size_t size) {
    const std::string says = std::string(LINE) + "listen_server] " + client_ + " has error (";
    // The lines of the errors that were reported before come first.
    const auto own_lines = [&] {
        std::vector<size_t> lines = find_all(says + error + ") ");
        lines.erase(lines.begin(), lines.end() - static_cast<ptrdiff_t>(std::min(lines.size(), times)));
        return lines;
    };
    const auto look = [&]() -> std::string {
        const bool is_taken = ask_driver("handed") >= ahead_ + times;
        const std::string idle = why_idle();
        if (!idle.empty()) {
            return idle + (is_taken ? "; it had taken the error" : "; the driver keeps the error");
        }
        if (has_started_with("can't find client " + client_ + "'s config.")) {
            return client_ + " has no listen section: nobody reads it";
        }
        const size_t last = news_.rfind(says);
        if ((!is_taken && !is_quiet()) || find(LISTENS, last) == NOWHERE) {
            return "";
        }
        const std::vector<size_t> lines = own_lines();
        if (lines.size() == times) {
            return judge(error, lines, is_taken, size);
        }
        if (is_taken && lines.empty() && last != NOWHERE) {
            const std::string told =
                news_.substr(last + says.size(), news_.find(')', last) - last - says.size());
            if (told != "0") {
                return "the driver tells " + told + " in place of " + error + ", and the daemon goes by that";
            }
        }
        if (find("lclient_get_error] " + client_ + " get client error failed") != NOWHERE) {
            return "the driver does not tell the error's number, and the daemon takes it for 0; phone log "
                   "--client " +
                   client_ + " shows what it did";
        }
        return "";
    };
    return wait(look, [&]() -> std::string {
        const std::vector<size_t> lines = own_lines();
        const size_t begun = lines.size();
        const std::string files = begun == times ? written(error, lines.front()) : "";
        if (!files.empty()) {
            return files + "; the daemon is still at work, phone log -f shows on what";
        }
        if (begun > 0) {
            return (times > 1 ? std::to_string(begun) + " of " + std::to_string(times) + " so far; " : "") +
                   AT_WORK;
        }
        return has_started_with("lclient " + client_ + " init success")
                   ? NOT_COME_TO_IT
                   : "the daemon does not listen to " + client_ + " yet; phone log -f shows what it does";
    });
}

std::string Outcome::of_state(const std::string& client, const std::string& state) {
    const std::string has_state = "poll_server] client " + client + "'s error (" + state + ") ";
    const std::string polled = "pclient " + client + " init success";
    const auto look = [&]() -> std::string {
        if (find(has_state + "ignored") != NOWHERE) {
            return "no trigger for " + state + ": nothing is done";
        }
        const size_t occured = find(has_state + "occured");
        if (occured != NOWHERE) {
            return is_quiet() ? written(state, occured) : "";
        }
        std::string idle = why_idle();
        if (!idle.empty()) {
            return idle;
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
        if (text.find(polled) == NOWHERE || at == NOWHERE) {
            return "the daemon does not poll yet; phone log -f shows what it does";
        }
        const long ticks = strtol(text.c_str() + text.find('-', at) + 1, nullptr, 10);
        return ticks > 0 ? "the daemon asks for it every " + std::to_string(ticks * TICK_SECONDS) + " s"
                         : "the daemon never asks for it: its sampling_period is below 0";
    });
}

std::string Outcome::of_command(const std::string& client, const std::string& number) {
    const std::string received =
        std::string(LINE) + "dmd_recv_cmd_from_apk] Received msg - name:" + client + " data:" + number + "\n";
    const auto look = [&]() -> std::string {
        const size_t begin = find(received);
        const size_t end = find(COMMAND_DONE, begin);
        if (end == NOWHERE) {
            return "";
        }
        std::string files = written(number, begin);
        if (!files.empty()) {
            return files;
        }
        const bool said_something = news_.find(client, begin + received.size()) < end;
        return said_something ? "nothing was written; phone log --client " + client + " shows why"
                              : client + " has no force-dump slot 0: nothing is dumped";
    };
    const std::string outcome =
        wait(look, [&]() -> std::string { return find(received) != NOWHERE ? AT_WORK : NOT_COME_TO_IT; });
    return find("] " + client + " is not found in dmd client list") != NOWHERE ? "" : outcome;
}

std::string Outcome::of_keys(const std::function<bool()>& are_read) {
    const auto look = [&]() -> std::string {
        const size_t combination = find(COMBINATION);
        if (!is_quiet() || !are_read()) {
            return "";
        }
        if (combination != NOWHERE) {
            // Frames become dumps one after the other, a second apart.
            const std::string files = written(KEY_NUMBER, combination);
            return files.empty() ? "" : files + "; phone log -f shows whether more come";
        }
        return find(NO_COMBINATION) != NOWHERE
                   ? "the daemon knows no such combination"
                   : "no combination yet: the daemon compares six events, and forgets them after a pause";
    };
    return wait(look, [&]() -> std::string {
        return find(COMBINATION) != NOWHERE
                   ? "a combination; phone log -f shows what the daemon does about it"
                   : "the daemon has not come to the keys within 2 seconds; phone log -f shows what it does";
    });
}

}  // namespace phone
