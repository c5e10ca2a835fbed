// Finding the phone's files where a person says they are.
#pragma once

#include <string>
#include <vector>

#include "tools/report.h"

namespace tools {

// The files that the paths name, and of folders all below them that have a name of the phone's, sorted but
// records first: reports of one second so keep the order in which they were written. A file that is named
// twice is there once. What cannot be searched becomes a problem.
std::vector<std::string> find_files(const std::vector<std::string>& paths, std::vector<Problem>* problems);

}  // namespace tools
