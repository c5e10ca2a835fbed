// The page that shows all reports in a browser.
#pragma once

#include <string>
#include <vector>

#include "tools/report.h"

namespace tools {

// What a page says of how it was made.
struct PageFacts {
    std::vector<std::string> paths;   // that were read
    std::vector<std::string> phones;  // that were read, also those without reports
    std::string filter;               // what was asked for; empty: all reports
};

// A self-contained HTML page with the reports, and with what could not be read: everything that it needs is
// in it, and whatever the reports' texts hold is shown as text.
std::string make_report_page(const std::vector<const Report*>& reports, const std::vector<Problem>& problems,
                             const PageFacts& facts);

}  // namespace tools
