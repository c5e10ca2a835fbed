// All reports and dumps in the files pulled from a phone.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/report.h"

namespace tools {

// By date and time, numbered; those whose date is not known come last.
struct Collection {
    std::vector<Report> reports;
    std::vector<Problem> problems;
    size_t files = 0;  // that were read
};

// Reads the files, and of folders all below them that have a name of the phone's. A report that stands in
// several files is one.
Collection collect_reports(const std::vector<std::string>& paths);

// Gives the bytes of a dump that is no archive, piece by piece, until `take` returns false. Throws
// Unreadable.
void read_dump(const Report& dump, const std::function<bool(std::string_view)>& take);

// Whether the dump is an archive, whose bytes are those of its attachments.
bool is_archive(const Report& dump);

}  // namespace tools
