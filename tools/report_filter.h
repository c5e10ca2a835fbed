// Choosing reports by device, error number and time.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/report.h"

namespace tools {

// A value that is none of those accepted; its text says which are.
class BadValue : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct ReportFilter {
    std::vector<std::string> devices;                 // patterns, of which one must fit; none: any device
    std::vector<std::pair<int32_t, int32_t>> errors;  // first and last; none: any error
    std::string since;                                // YYYY-MM-DD HH:MM:SS; empty: any time
    std::string until;
};

// "N" or "N-M", where both may be negative. Throws BadValue.
std::pair<int32_t, int32_t> parse_errors(const std::string& text);

// "YYYY-MM-DD", "YYYY-MM-DD HH:MM" or "YYYY-MM-DD HH:MM:SS", also with a "T": the first, or the last, second
// of that time. Throws BadValue.
std::string parse_time(const std::string& text, bool is_last);

// Whether the name fits the pattern, in which '*' and '?' are as in a shell; any case.
bool fits_pattern(const std::string& pattern, const std::string& name);

// Whether the filter lets the report through; `date_missing` when it does not because it has no date.
bool passes(const ReportFilter& filter, const Report& report, bool* date_missing);

}  // namespace tools
