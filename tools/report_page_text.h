// The page before it is filled in: report_page.html and what belongs into it, as texts of the program.
#pragma once

namespace tools {

extern const char REPORT_PAGE_HTML[];
extern const char REPORT_PAGE_CSS[];
extern const char REPORT_TIMELINE_JS[];
extern const char REPORT_TABLE_JS[];
extern const char REPORT_PAGE_JS[];

}  // namespace tools
