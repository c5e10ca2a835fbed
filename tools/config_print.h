// Showing a checked configuration.
#pragma once

#include <string>

#include "tools/config_check.h"
#include "tools/terminal.h"

namespace tools {

// A block for each section and a line for each finding on a terminal; elsewhere a line for each section,
// trigger, action and finding, that word first, the parts separated by tabs.
std::string format_config(const Terminal& terminal, const CheckedConfig& config);

// The same as one JSON document, with a line end.
std::string format_config_json(const CheckedConfig& config);

}  // namespace tools
