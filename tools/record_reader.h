// Taking a record file apart: its bytes become reports.
#pragma once

#include <string_view>
#include <vector>

#include "tools/report.h"

namespace tools {

// A record: `bytes_before` that belong to no report, then the reports, each of them its head and its content
// up to the next, then `bytes_after`, for which there was no room.
struct Record {
    size_t bytes_before = 0;
    std::vector<Report> reports;  // without their numbers and places
    size_t bytes_after = 0;
};

// Takes the bytes apart, as far as `reports_max` reports. A report is marked as cut when a part of its head
// is missing; that the end of the content is missing cannot be seen in a record.
Record read_record(std::string_view bytes, size_t reports_max);

}  // namespace tools
