// What the steps of the parser show: where the parts of the sections stand, and what is odd about them.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "config/settings.h"
#include "tools/config_check.h"
#include "tools/config_trace.h"

namespace tools {

// Where the parts of a section stand in the file: lines, 0 for what does not.
struct TriggerLines {
    int number = 0;
    int action = 0;
};
struct SectionLines {
    const setting_info* setting;
    int header;
    std::vector<int> repetitions = {};  // headers of the same name that follow
    int client = 0;
    int num_triggers = 0;
    std::map<int32_t, TriggerLines> triggers = {};  // by the index of their slot
};

struct StepFindings {
    std::vector<SectionLines> sections;  // in the order of their headers
    // What the parser complained about, and what it cut off or took for something else without a word.
    std::vector<Finding> findings;
};

StepFindings find_in_steps(const ConfigTrace& trace);

}  // namespace tools
