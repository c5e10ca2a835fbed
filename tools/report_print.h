// Reports for people: the table of them, and one of them whole.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/report.h"
#include "tools/terminal.h"

namespace tools {

// The table of the reports.
std::string report_table(const Terminal& terminal, const std::vector<const Report*>& reports);

// Gives the report whole to `put`, piece by piece; the bytes of its content as they are, but on a terminal
// without control characters. Throws Unreadable when a dump cannot be read any more.
void show_report(const Terminal& terminal, const Report& report,
                 const std::function<void(std::string_view)>& put);

}  // namespace tools
