// Showing a checked configuration, and what operations do.
#pragma once

#include <string>
#include <vector>

#include "tools/config_check.h"
#include "tools/terminal.h"

namespace tools {

// A block for each section, a line for each finding, and their sum.
std::string format_config(const Terminal& terminal, const CheckedConfig& config);

// A line for each warning.
std::string format_warnings(const Terminal& terminal, const CheckedConfig& config);

// A line for each section, trigger, action and finding, that word first, the parts separated by tabs.
std::string format_config_tsv(const CheckedConfig& config);

// The same as one JSON document, with a line end.
std::string format_config_json(const CheckedConfig& config);

// "client+slot".
std::string action_word(const CheckedAction& action);

// The names that a section gives its device.
std::string format_names(const CheckedSection& section);

// A part of what an operation does.
struct Step {
    std::string label;
    std::string text;
};

// A line for each step, or more where it is long: each label, and the texts below each other.
std::string format_steps(const Terminal& terminal, const std::vector<Step>& steps);

// The text in lines of a readable length; each line after the first begins with as many blanks.
std::string wrap(const std::string& text, size_t indent);

}  // namespace tools
