// The phone's log: the process that keeps what the daemon writes, with times, and shows it.
#pragma once

#include <string>

#include "platform/owned.h"

namespace phone {

// Where the phone has its log. A full one is renamed, with ".old" behind it.
constexpr char LOG_PATH[] = "/dev/log/main";

// Keeps the lines that arrive at `lines`, each with the time, in LOG_PATH and prints them on standard output,
// until all writers have closed the other end. Prints the banner once the daemon has started. On a terminal,
// the clients without a section have one line together. Nobody who reads slowly, or no more, costs a line of
// the file.
[[noreturn]] void run_log_keeper(UniqueFd lines, const std::string& banner);

}  // namespace phone
