// The page that shows all reports in a browser.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace tools {

// A self-contained HTML page that shows the document of dmd-report --json: everything it needs is in it, and
// whatever the document's texts hold is shown as text.
std::string make_report_page(const nlohmann::json& document);

}  // namespace tools
