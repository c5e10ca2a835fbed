// The daemon that ships, started and followed by its log.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/measure.h"

namespace bench {

// A client whose errors are only read and reported, and of which the daemon reads 30,000 bytes.
extern const char* const CLIENT;

// Its smallest error number of a trigger; there are more behind it.
constexpr int FIRST_NUMBER = 20000;

// What it logs when it waits for errors.
constexpr char WAITS[] = "[M/listen_server] Enter select";

// Write the configuration that daemons started from then on read: all clients listened to, with so many
// triggers each, and filled up with comments to 61 KB if it is to be `full`; or CLIENT alone. (The emulated
// driver takes longer to say of 46 clients that nothing is new than the daemon takes for a report.)
void configure_all_clients(int triggers, bool full);
void configure_one_client();

// The most triggers that each client can have in 61 KB.
constexpr int MOST_TRIGGERS = 20;

// A daemon in this phone, which is a commercial or a debug build from then on. Killed at its end.
class Daemon {
  public:
    // Its log is read as it comes, or only every so many microseconds: reading it at once takes processor
    // time from it.
    explicit Daemon(bool commercial, unsigned reading_pause_us = 0);
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;
    ~Daemon();

    pid_t pid() const { return pid_; }

    // When it was started.
    clock::time_point start() const { return start_; }

    // Takes the lines of its log until each text has stood in one, in whatever order. Returns when the last
    // of these lines was there; throws after a minute without a line.
    clock::time_point wait_for(std::vector<std::string> texts);

    // Waits until it waits for errors and all its threads have started. Returns as above.
    clock::time_point wait_until_ready();

  private:
    void follow(int log);

    const bool commercial_;
    const unsigned reading_pause_us_;
    pid_t pid_ = 0;
    clock::time_point start_;
    std::mutex mutex_;
    std::condition_variable more_;
    std::deque<std::pair<clock::time_point, std::string>> lines_;  // guarded by mutex_
    bool ended_ = false;                                           // the log; guarded by mutex_
    std::thread follower_;
};

// Throws when this process runs in no phone: what is measured makes and removes files of fixed names.
void require_phone();

// A driver reports an error.
void report(int number, const std::string& text);

}  // namespace bench
