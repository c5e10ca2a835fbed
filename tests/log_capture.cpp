// Collecting the daemon's log for the tests.
#include "tests/log_capture.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include <gtest/gtest.h>

#include "platform/desk/log.h"

namespace {

// Outlives every test: the daemon's threads are never stopped, so a message may come at any time, also while
// the process ends.
struct Collected {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::string> lines;
    bool active = false;
};

Collected& collected() {
    static Collected* const instance = new Collected;
    return *instance;
}

void collect(int /*priority*/, const char* /*tag*/, const char* text) {
    std::string line(text);
    if (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    Collected& log = collected();
    const std::lock_guard<std::mutex> lock(log.mutex);
    if (!log.active) {
        fprintf(stderr, "%s\n", line.c_str());
        return;
    }
    log.lines.push_back(line);
    log.arrived.notify_all();
}

// Call it with the mutex held.
int count_in(const Collected& log, const std::string& part) {
    return static_cast<int>(std::count_if(log.lines.begin(), log.lines.end(), [&](const std::string& line) {
        return line.find(part) != std::string::npos;
    }));
}

}  // namespace

LogCapture::LogCapture() {
    Collected& log = collected();
    const std::lock_guard<std::mutex> lock(log.mutex);
    log.lines.clear();
    log.active = true;
    // The sink stays for good: taking it away would race with threads that log on.
    static const bool installed = (desk_log_set_sink(collect), true);
    static_cast<void>(installed);
}

LogCapture::~LogCapture() {
    Collected& log = collected();
    const std::lock_guard<std::mutex> lock(log.mutex);
    log.active = false;
    if (testing::Test::HasFailure()) {
        for (const std::string& line : log.lines) {
            fprintf(stderr, "log: %s\n", line.c_str());
        }
    }
}

std::vector<std::string> LogCapture::lines() const {
    Collected& log = collected();
    const std::lock_guard<std::mutex> lock(log.mutex);
    return log.lines;
}

bool LogCapture::has(const std::string& part) const {
    return count(part) > 0;
}

int LogCapture::count(const std::string& part) const {
    Collected& log = collected();
    const std::lock_guard<std::mutex> lock(log.mutex);
    return count_in(log, part);
}

bool LogCapture::wait_for(const std::string& part, int times) const {
    Collected& log = collected();
    std::unique_lock<std::mutex> lock(log.mutex);
    return log.arrived.wait_for(lock, std::chrono::milliseconds(PATIENCE_MS),
                                [&] { return count_in(log, part) >= times; });
}

void LogCapture::clear() {
    Collected& log = collected();
    const std::lock_guard<std::mutex> lock(log.mutex);
    log.lines.clear();
}
