// What the names of the phone's files say.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tools {

// dmd_dump_NNNNN_HHMMSS.tar or .txt, with .gz or without.
struct DumpName {
    int32_t error_no = 0;
    std::string time;  // HH:MM:SS
    bool is_archive = false;
    bool is_gzip = false;
};

// What stands behind the last slash. Empty when that is longer than any name.
std::string last_part(const std::string& path);

// For a path, or a member's name, that ends in a dump's name.
std::optional<DumpName> parse_dump_name(const std::string& path);

// Whether the path, or the member's name, ends in the name of a record file.
bool is_record_name(const std::string& path);

// The phone's day on which its clock showed the time (HH:MM:SS) closest to that second since the epoch:
// YYYY-MM-DD. The phone's time zone is not known, so east of +12 hours it can be the day before. Empty for
// second 0, which stands for none.
std::string date_of_dump(const std::string& time, int64_t second);

}  // namespace tools
