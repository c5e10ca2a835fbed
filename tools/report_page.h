// The page that shows all reports in a browser.
#pragma once

#include <string>
#include <vector>

#include "tools/report.h"

namespace tools {

// A self-contained HTML page with the reports that were found below the paths, and with what could not be
// read: everything that it needs is in it, and whatever the reports' texts hold is shown as text.
std::string make_report_page(const std::vector<const Report*>& reports, const std::vector<Problem>& problems,
                             const std::vector<std::string>& paths);

}  // namespace tools
