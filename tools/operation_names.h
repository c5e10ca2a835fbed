// What the operations behind the slots of the client table are called, and what they do.
#pragma once

#include <string>
#include <vector>

#include "clients/client.h"

namespace tools {

// The text that an operation reads out of its client's driver, and reports.
enum class Reads {
    NOTHING,
    ERROR,   // of the oldest pending error, which the driver then drops
    FORCED,  // of the dump that it makes the driver do
};

enum class Report { NONE, FULL, SHORT };

// One operation. Its further steps are phrases, empty where there is no such step.
struct OperationFacts {
    client_dump_operation operation;
    const char* name;
    const char* does;  // in a few words
    Reads reads;
    Report report;
    std::string first = {};           // before it reads
    std::string waits = {};           // once it has read a text, before it reports that
    std::string packs = {};           // with the report, on a debug build: what is there of these files
    std::vector<int> packs_for = {};  // the only error numbers that it packs them for; none: for all
    std::string debug = {};           // on a debug build, besides the report
    std::string commercial = {};      // on a commercial build, besides the report
    std::string last = {};
    bool saves_dump = false;  // of its own, on a debug build
};

// The row of an operation. One that the table lacks has "?" for a name.
const OperationFacts& facts_of(client_dump_operation operation);

// All rows.
extern const std::vector<OperationFacts> operation_facts;

}  // namespace tools
