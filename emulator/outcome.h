// What became of an error, a state, a command or a key: what the daemon's log and the reports show within two
// seconds.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "emulator/phone_view.h"

namespace phone {

// Made before the request, so that it knows what is new after it. Each operation returns one line, and waits
// for what it says for two seconds at most.
class Outcome {
  public:
    explicit Outcome(const std::string& socket_name);

    bool is_daemon_running() const { return has_daemon(root_); }

    // The driver has reported the error `count` times, each with a text of `size` bytes.
    std::string of_report(const std::string& client, const std::string& error, size_t count, size_t size);

    std::string of_state(const std::string& client, const std::string& state);

    // Empty when the daemon knows no such client.
    std::string of_command(const std::string& client, const std::string& number);

    // `are_read` tells whether the daemon has read the events.
    std::string of_keys(const std::function<bool()>& are_read);

  private:
    // Calls `look` until it returns a line, with ever more of the log. Returns `late` when there is none in
    // time.
    template <typename Look, typename Late>
    std::string wait(Look look, Late late);

    bool is_quiet() const;
    bool has_started_with(const std::string& text) const;
    size_t find(const std::string& text, size_t from = 0) const;
    size_t count(const std::string& text) const;
    std::string list_new_reports() const;

    std::string root_;
    std::map<std::string, FileState> before_;
    LogReader log_;
    std::string started_;  // the log since the daemon's latest start, up to the request
    std::string news_;     // the log since the request
    int quiet_looks_ = 0;  // since the log last grew
};

}  // namespace phone
