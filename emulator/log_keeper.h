// The phone's log: a process that keeps what the daemon writes, and one that shows it. So whoever shows it to
// a terminal that is held up holds up nobody else.
#pragma once

#include <string>

#include "platform/owned.h"

namespace phone {

// Where the phone has its log. A full one is renamed, with ".old" behind it; the next one begins with the
// lines of the daemon's latest start.
constexpr char LOG_PATH[] = "/dev/log/main";
// Stands behind those lines.
constexpr char LOG_GOES_ON[] = "(the lines above are from the log before)\n";

// Keeps the lines that arrive at `lines`, each with the time, in LOG_PATH, until all writers have closed the
// other end.
[[noreturn]] void run_log_keeper(const UniqueFd& lines);

// Prints the head, the log, and the banner once the daemon has started, or has had time to. On a terminal,
// the clients without a section have one line together. Returns at the end of the keeper, who holds
// the other end of `keeper`.
void show_log(const UniqueFd& keeper, const std::string& head, const std::string& banner);

}  // namespace phone
