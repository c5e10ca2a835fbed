// The page before its document is filled in: report_page.html, as a text of the program.
#pragma once

namespace tools {

extern const char REPORT_PAGE[];

}  // namespace tools
