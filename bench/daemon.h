// The daemon that ships, configured, started and followed by its log.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "platform/owned.h"

namespace bench {

// A client that is listened to.
struct Section {
    std::string client;
    std::string device;
    int first_number;  // of its errors with a trigger; those behind it have one too
    int triggers;
    int dump_slot = 0;
};

// Writes the configuration that daemons started from then on read.
void write_configuration(const std::vector<Section>& sections);

// What it logs when it waits for errors.
constexpr char WAITS[] = "[M/listen_server] Enter select";

// A daemon in this phone, which is a commercial or a debug build from then on. Killed at its end. Its log
// must be read on: a pipe holds no more than 64 KiB of it.
class Daemon {
  public:
    // Its log is read as it comes, or only every so many microseconds: reading it at once takes processor
    // time from it.
    explicit Daemon(bool commercial, unsigned reading_pause_us = 0);
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;
    ~Daemon();

    pid_t pid() const { return pid_; }

    // The next line of its log; none when none comes for so long. Throws when the daemon has ended.
    std::optional<std::string> next_line(std::chrono::milliseconds patience);

    // Takes the lines of its log until each text has stood in one, in whatever order. Returns when the last
    // of these lines was there; throws after a minute without a line.
    clock::time_point wait_for(std::vector<std::string> texts);

    // Waits until it waits for errors and all its threads have started.
    void wait_until_ready();

  private:
    const bool commercial_;
    const unsigned reading_pause_us_;
    pid_t pid_ = 0;
    UniqueFd log_;
    std::string unread_;           // of its log
    clock::time_point last_read_;  // when the last of that came
};

// What a running daemon has used so far, and what it holds; memory in KiB.
struct Usage {
    long threads = 0, descriptors = 0;
    long switches = 0;
    double processor = 0;  // seconds
    long resident = 0, proportional = 0, own = 0;
};

Usage usage_of(const Daemon& daemon);

// Sends a request to the phone that this process runs in. Returns its answer; throws when it refuses, or when
// this process runs in no phone.
std::string ask(const std::vector<std::string>& words);

// A driver reports an error.
void report(const std::string& client, int number, const std::string& text);

}  // namespace bench
