// The filters of dmd-report.
#include "tools/report_filter.h"

#include <fnmatch.h>

#include <algorithm>

namespace tools {
namespace {

bool device_fits(const ReportFilter& filter, const Report& report) {
    const auto fits = [&](const std::string& pattern) {
        return report.kind == ReportKind::REPORT &&
               fnmatch(pattern.c_str(), report.device.c_str(), FNM_CASEFOLD | FNM_NOESCAPE) == 0;
    };
    return filter.devices.empty() || std::any_of(filter.devices.begin(), filter.devices.end(), fits);
}

bool error_fits(const ReportFilter& filter, const Report& report) {
    const auto fits = [&](const ErrorRange& range) {
        return report.has_error_no && range.first <= report.error_no && report.error_no <= range.last;
    };
    return filter.errors.empty() || std::any_of(filter.errors.begin(), filter.errors.end(), fits);
}

}  // namespace

bool passes(const ReportFilter& filter, const Report& report, bool* date_missing) {
    *date_missing = false;
    if (!device_fits(filter, report) || !error_fits(filter, report)) {
        return false;
    }
    if (filter.since.empty() && filter.until.empty()) {
        return true;
    }
    *date_missing = report.date.empty();
    const std::string when = report.date + " " + report.time;
    return !*date_missing && (filter.since.empty() || when >= filter.since) &&
           (filter.until.empty() || when <= filter.until);
}

}  // namespace tools
