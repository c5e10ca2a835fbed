// Names as output/dump_archive.cpp and output/record_file.cpp make them.
#include "tools/dump_name.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <regex>

namespace tools {
namespace {

// Bytes of a path's last part in which a name is looked for.
constexpr size_t NAME_MAX_BYTES = 255;

}  // namespace

std::string last_part(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.size() <= NAME_MAX_BYTES ? name : "";
}

std::optional<DumpName> parse_dump_name(const std::string& path) {
    // %05d fills to five characters, of which a minus sign is one.
    static const std::regex form(
        "dmd_dump_([0-9]{5,10}|-[0-9]{4,10})_([01][0-9]|2[0-3])([0-5][0-9])([0-5][0-9]|60)\\.(tar|txt)(\\.gz)"
        "?");
    std::smatch parts;
    const std::string name = last_part(path);
    if (!std::regex_match(name, parts, form)) {
        return std::nullopt;
    }
    const long long number = strtoll(parts[1].str().c_str(), nullptr, 10);
    if (number < INT32_MIN || number > INT32_MAX) {
        return std::nullopt;
    }
    return DumpName{static_cast<int32_t>(number),
                    parts[2].str() + ":" + parts[3].str() + ":" + parts[4].str(), parts[5] == "tar",
                    parts[6].matched};
}

bool is_record_name(const std::string& path) {
    static const std::regex form("dmd_record_[0-9]\\.txt|dmd_commercial_record\\.txt");
    return std::regex_match(last_part(path), form);
}

std::string date_of_dump(const std::string& time, int64_t second) {
    constexpr int64_t DAY = 86400;
    constexpr int64_t YEARS_KNOWN = int64_t{1} << 33;  // what a header of 33 bits holds
    if (second <= 0 || second >= YEARS_KNOWN) {
        return "";
    }
    const int64_t on_clock = strtol(&time[0], nullptr, 10) * 3600 + strtol(&time[3], nullptr, 10) * 60 +
                             strtol(&time[6], nullptr, 10);
    // Halfway between two days it is the later one: there are phones at +12 hours, and none at -12.
    const time_t midnight = (second - on_clock + DAY / 2) / DAY * DAY;
    tm day = {};
    char date[16];
    if (gmtime_r(&midnight, &day) == nullptr || strftime(date, sizeof date, "%Y-%m-%d", &day) == 0) {
        return "";
    }
    return date;
}

}  // namespace tools
