// What a command line of dmd-report asks for.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/report_filter.h"

namespace tools {

struct Choices {
    std::vector<std::string> paths;
    ReportFilter filter;
    std::optional<long> show;  // number of the one report
    bool json = false;
    std::string html;  // where a page is to be written; empty: nowhere
    std::string help;  // to be printed, and nothing else done; empty when not asked for
};

// A command line that asks for something that there is not; its text says what.
class WrongUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws WrongUsage.
Choices parse_command_line(int argc, char** argv);

}  // namespace tools
