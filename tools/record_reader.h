// Taking a record file apart: its bytes become reports.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/report.h"

namespace tools {

// A report of a record. Its bytes there are `head`, which ends with the line "[Content]:", and
// report.content.
struct RecordReport {
    Report report;  // without its number and places
    std::string head;
};

// A record: `bytes_before` that belong to no report, then the reports, each up to the next, then
// `bytes_after`, for which there was no room.
struct Record {
    size_t bytes_before = 0;
    std::vector<RecordReport> reports;
    size_t bytes_after = 0;
};

// Takes the bytes apart, as far as `reports_max` reports. A report is marked as cut when a part of its head
// is missing; that the end of the content is missing cannot be seen in a record.
Record read_record(std::string_view bytes, size_t reports_max);

// Whether `part`, the bytes of a report that is cut, are the beginning of `whole`, up to the head that
// follows it.
bool is_beginning_of(const RecordReport& part, const RecordReport& whole);

}  // namespace tools
