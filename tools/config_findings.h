// What is odd about a configuration file, place by place.
#pragma once

#include <vector>

#include "tools/config_check.h"
#include "tools/config_trace.h"

namespace tools {

// What the parser complained about, and what it cut off or took for something else without a word.
std::vector<Finding> find_in_steps(const ConfigTrace& trace);

}  // namespace tools
