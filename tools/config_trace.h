// The daemon's parser at work on a configuration file, step by step: each place of the file that it reads,
// and what it logs there.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "config/parse_watch.h"

namespace tools {

struct TraceStep {
    parse_place place;
    int line;    // of the file, from 1
    bool first;  // nothing but blanks stands before it on its line
    // As the parser sees it: a header's name, also over line ends, without its end where there is no "]"; a
    // word; a value line.
    std::string text;
    const setting_info* setting;
    field_code field;
    int32_t trigger;
    std::vector<std::string> messages;  // logged at this step, without their line ends
};

struct ConfigTrace {
    bool parsed = false;                // false when the daemon would watch nothing
    std::string text;                   // what was read
    std::vector<std::string> messages;  // logged before the text was there
    std::vector<TraceStep> steps;
};

// Lets the parser read the file into setting_list, which must be empty.
ConfigTrace trace_config(const std::string& path);

// Whether one of the step's messages has the part.
bool has_message(const TraceStep& step, const char* part);

// The line that an offset of the text is on, from 1.
int line_of(const std::string& text, size_t offset);

}  // namespace tools
