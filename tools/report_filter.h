// Choosing reports by device, error number and time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/report.h"

namespace tools {

struct ErrorRange {
    int32_t first;
    int32_t last;
};

struct ReportFilter {
    std::vector<std::string> devices;  // patterns as in a shell, of which one must fit; none: any device
    std::vector<ErrorRange> errors;    // of which one must hold it; none: any error
    std::string since;                 // YYYY-MM-DD HH:MM:SS; empty: any time
    std::string until;
};

// Whether the filter lets the report through; `date_missing` when it does not because it has no date.
bool passes(const ReportFilter& filter, const Report& report, bool* date_missing);

}  // namespace tools
