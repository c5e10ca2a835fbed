// Reports as text for people and for simple programs.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "tools/report.h"
#include "tools/terminal.h"

namespace tools {

// The table of the reports, a row for each. On a terminal without what all paths begin with, and with a
// column for the phones only when there are several.
Table report_table(const Terminal& terminal, const std::vector<const Report*>& reports);

// Gives what there is to say of a report to `put`: its content, then the rest. `all_places` names each place
// where it stands, also when there are many. Throws Unreadable when it is a dump that cannot be read again.
void show_report(const Terminal& terminal, const Report& report, bool all_places,
                 const std::function<void(std::string_view)>& put);

}  // namespace tools
