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
    size_t offset;     // in the file
    int line;          // of the file, from 1
    bool first;        // nothing but blanks stands before it on its line
    std::string text;  // a header's name, without its end where there is no "]"; a word; a value line
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

}  // namespace tools
