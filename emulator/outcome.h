// What became of an error, a state, a command or a key: what the daemon's log, the driver's queue and the
// reports show within two seconds.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "emulator/phone_view.h"

namespace phone {

// Made before the request, so that it knows what is new after it. Each operation but the first three returns
// one line, and waits for what it says for two seconds at most. Numbers are decimal, as the daemon prints
// them. All throw Refusal.
class Outcome {
  public:
    // Refuses a client that the driver has not; none is given where the driver's queue does not matter.
    explicit Outcome(const std::string& socket_name, const std::string& client = "");

    // Reads on in the log. To be called between many requests, so that nothing of it is missed.
    void read_log();

    // Why the daemon does nothing at all, or "".
    std::string why_idle() const;

    // The driver has reported the client's error `times` times, each with a text of `size` bytes.
    std::string of_report(const std::string& error, size_t times, size_t size);

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

    // What the driver counts of the client.
    size_t ask_driver(const char* what) const;

    bool is_quiet() const;
    bool has_started_with(const std::string& text) const;
    size_t find(const std::string& text, size_t from = 0) const;
    std::vector<size_t> find_all(const std::string& text) const;

    // What the request at `begin` of the news wrote: the line that says so, or that it is lost; "" when
    // nothing was written. Dumps count that have the number.
    std::string written(const std::string& number, size_t begin) const;

    // The line for errors that the daemon has begun to look at, `lines` being where.
    std::string judge(const std::string& error, const std::vector<size_t>& lines, bool is_taken,
                      size_t size) const;

    std::string socket_name_;
    std::string client_;
    std::string root_;
    std::map<std::string, FileState> before_;
    LogReader log_;
    std::string started_;  // the log since the daemon's latest start, up to the request
    std::string news_;     // the log since the request
    int quiet_looks_ = 0;  // since the log last grew
    size_t ahead_ = 0;     // texts that the driver has handed over, and those that wait
};

}  // namespace phone
