// What a test sees of the daemon's log.
#pragma once

#include <string>
#include <vector>

// How long a test waits for what must come. A phone's processor is emulated, and slow; a desk may be busy.
constexpr int PATIENCE_MS = sizeof(void*) == 4 ? 600000 : 300000;

// Collects the log from its construction to its destruction; one at a time. Each message is one entry,
// without its final newline. A failed test prints what was collected.
//
// Construct it before anything under test starts a thread; it may be destroyed while such threads log on.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    // Whether, and how many, messages contain `part`.
    bool has(const std::string& part) const;
    int count(const std::string& part) const;
    // Waits until `times` messages contain `part`; false when that took longer than PATIENCE_MS.
    bool wait_for(const std::string& part, int times = 1) const;
    // Forgets what was collected so far.
    void clear();
};
