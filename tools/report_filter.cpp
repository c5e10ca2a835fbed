// The filters of dmd-report.
#include "tools/report_filter.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <regex>

namespace tools {

std::pair<int32_t, int32_t> parse_errors(const std::string& text) {
    static const std::regex form("(-?[0-9]{1,10})(?:-(-?[0-9]{1,10}))?");
    std::smatch parts;
    if (std::regex_match(text, parts, form)) {
        const long long first = strtoll(parts[1].str().c_str(), nullptr, 10);
        const long long last = parts[2].matched ? strtoll(parts[2].str().c_str(), nullptr, 10) : first;
        if (INT32_MIN <= first && first <= last && last <= INT32_MAX) {
            return {static_cast<int32_t>(first), static_cast<int32_t>(last)};
        }
    }
    throw BadValue("\"" + text +
                   "\" is no error number, as 20002, and no range of them from the smaller to the " +
                   "larger, as 20000-20099");
}

std::string parse_time(const std::string& text, bool is_last) {
    static const std::regex form("([0-9]{4}-[0-9]{2}-[0-9]{2})(?:[T ]([0-9]{2}:[0-9]{2})(:[0-9]{2})?)?");
    std::smatch parts;
    if (std::regex_match(text, parts, form)) {
        const std::string clock = parts[2].matched ? parts[2].str() : is_last ? "23:59" : "00:00";
        const std::string seconds = parts[3].matched ? parts[3].str() : is_last ? ":59" : ":00";
        std::string whole = parts[1].str() + " " + clock + seconds;
        // A day or an hour that there is not comes back as another one.
        tm time = {};
        char again[32] = "";
        if (strptime(whole.c_str(), "%Y-%m-%d %H:%M:%S", &time) != nullptr) {
            time_t second = timegm(&time);
            gmtime_r(&second, &time);
            strftime(again, sizeof again, "%Y-%m-%d %H:%M:%S", &time);
        }
        if (whole == again) {
            return whole;
        }
    }
    throw BadValue("\"" + text + "\" is no day, as 2026-11-25, and no time, as \"2026-11-25 10:11\" or " +
                   "2026-11-25T10:11:12");
}

bool fits_pattern(const std::string& pattern, const std::string& name) {
    size_t star = std::string::npos;  // the last one passed, and where what it stands for ends
    size_t star_end = 0;
    size_t p = 0;
    size_t n = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            star_end = n;
        } else if (p < pattern.size() && (pattern[p] == '?' || strncasecmp(&pattern[p], &name[n], 1) == 0)) {
            ++p;
            ++n;
        } else if (star != std::string::npos) {
            p = star + 1;
            n = ++star_end;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string::npos;
}

bool passes(const ReportFilter& filter, const Report& report, bool* date_missing) {
    *date_missing = false;
    const bool device_fits =
        filter.devices.empty() ||
        std::any_of(filter.devices.begin(), filter.devices.end(), [&](const std::string& pattern) {
            return report.kind == ReportKind::REPORT && fits_pattern(pattern, report.device);
        });
    const bool error_fits = filter.errors.empty() ||
                            std::any_of(filter.errors.begin(), filter.errors.end(),
                                        [&](const std::pair<int32_t, int32_t>& range) {
                                            return report.has_error_no && range.first <= report.error_no &&
                                                   report.error_no <= range.second;
                                        });
    if (!device_fits || !error_fits || (filter.since.empty() && filter.until.empty())) {
        return device_fits && error_fits;
    }
    *date_missing = report.date.empty();
    const std::string when = report.date + " " + report.time;
    return !*date_missing && (filter.since.empty() || when >= filter.since) &&
           (filter.until.empty() || when <= filter.until);
}

}  // namespace tools
