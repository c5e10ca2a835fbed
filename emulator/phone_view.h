// What the desk sees of a running phone: its log, its reports and its daemon.
#pragma once

#include <ctime>
#include <map>
#include <string>
#include <utility>

#include "platform/owned.h"

namespace phone {

// Where the daemon writes, seen from inside.
constexpr char PHONE_LOG_DIR[] = "/data/kvdx_logs/dmd_log";

// The phone's root as a path of the desk. Throws Refusal when no such phone runs.
std::string root_of_phone(const std::string& socket_name);

// The daemon's log, read piece by piece as it grows.
class LogReader {
  public:
    explicit LogReader(const std::string& root);

    // False for a phone that keeps no log, whose log reads as empty.
    bool is_kept() const { return file_.valid(); }

    // What has been written since the call before, or since the boot.
    std::string read_more();

  private:
    std::string path_;
    UniqueFd file_;
    UniqueFd next_;         // that took its place
    bool is_copy_ = false;  // what comes next in the file has been read from the one before
    std::string copied_;
};

// Size and time of a file.
using FileState = std::pair<off_t, std::pair<time_t, long>>;

// The records and dumps that are there, by their names.
std::map<std::string, FileState> reports_in(const std::string& root);

// Whether a process of the phone is the daemon.
bool has_daemon(const std::string& root);

}  // namespace phone
