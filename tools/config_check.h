// What the daemon will make of a configuration file: its sections as they act, and what is odd about the
// file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/operation_names.h"

namespace tools {

struct CheckedAction {
    std::string client;
    int32_t slot;
    const OperationFacts* operation;  // null when nothing runs
    std::string why_nothing;          // then the reason
};

struct CheckedTrigger {
    int line;  // of its number, or of its action where it has no number
    int32_t number;
    std::string test_switch;
    bool fires;  // false when an earlier trigger of the section has the number
    std::vector<CheckedAction> actions;
};

// Whether an action of the trigger writes a report.
bool reports(const CheckedTrigger& trigger);

struct CheckedSection {
    std::string name;
    int line;               // where it first begins
    std::string server;     // "listen", "poll", or empty when it has none
    bool in_force = false;  // whether a server takes it
    std::string client;     // as the client table spells it, or as written when that has no such client
    std::string device;     // the names that stand in where the driver gives none
    std::string ic;
    std::string module;
    uint64_t period_seconds = 0;           // time between two samples; 0 for listen
    std::vector<CheckedTrigger> triggers;  // the complete ones
};

// Something that a person should know of. A warning says that the daemon does something else than what the
// file seems to ask for, or that nobody wants what it asks for; a note is none.
struct Finding {
    int line;  // 0 when it is about the file as a whole
    std::string text;
    std::string log = {};  // what the daemon logs about it; empty when it says nothing
    bool is_warning = true;
};

struct CheckedConfig {
    std::string path;
    bool parsed;                           // false when the daemon would watch nothing
    std::vector<CheckedSection> sections;  // by line
    std::vector<Finding> findings;         // by line
};

// Reads the file with the daemon's own parser. Once in a process.
CheckedConfig check_config(const std::string& path);

}  // namespace tools
