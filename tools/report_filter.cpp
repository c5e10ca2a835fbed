// The filters of dmd-report.
#include "tools/report_filter.h"

#include <fnmatch.h>
#include <strings.h>

#include <algorithm>

#include "tools/terminal.h"

namespace tools {
namespace {

bool fits_any(const std::vector<std::string>& patterns, const std::string& name) {
    return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
        return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD | FNM_NOESCAPE) == 0;
    });
}

std::string when_of(const Report& report) {
    return report.date.empty() ? "" : report.date + " " + report.time;
}

bool holds(const std::string& content, const std::string& text) {
    const auto same = [](char left, char right) { return tolower(left) == tolower(right); };
    return std::search(content.begin(), content.end(), text.begin(), text.end(), same) != content.end();
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

// The first names of those that there are.
std::string some_of(const std::set<std::string>& names) {
    constexpr size_t NAMED_MOST = 20;
    std::vector<std::string> named(
        names.begin(), std::next(names.begin(), static_cast<ptrdiff_t>(std::min(names.size(), NAMED_MOST))));
    if (names.size() > NAMED_MOST) {
        named.push_back("and " + std::to_string(names.size() - NAMED_MOST) + " more");
    }
    return named.empty() ? "none" : joined(named);
}

std::string errors_of(const std::vector<ErrorRange>& ranges) {
    std::vector<std::string> words;
    words.reserve(ranges.size());
    for (const ErrorRange& range : ranges) {
        words.push_back(std::to_string(range.first) +
                        (range.last == range.first ? "" : "-" + std::to_string(range.last)));
    }
    return joined(words);
}

std::string or_none(const std::string& when) {
    return when.empty() ? "no known date" : when;
}

// One filter: whether it is given, what it lets through, and what is said when that is nothing.
struct Part {
    const char* option;
    bool is_of_time;  // and so lets no report without a date through
    bool (*is_given)(const ReportFilter&);
    bool (*passes)(const ReportFilter&, const Report&);
    std::string (*why_none)(const ReportFilter&, const FilterCounts&);
};

const Part PARTS[] = {
    {"--phone", false, [](const ReportFilter& filter) { return !filter.phones.empty(); },
     [](const ReportFilter& filter, const Report& report) { return fits_any(filter.phones, report.phone); },
     [](const ReportFilter& filter, const FilterCounts& counts) {
         return "no report of phone " + joined(filter.phones) + "; phones there: " + some_of(counts.phones);
     }},
    {"--device", false, [](const ReportFilter& filter) { return !filter.devices.empty(); },
     [](const ReportFilter& filter, const Report& report) {
         return report.kind == ReportKind::REPORT && fits_any(filter.devices, report.device);
     },
     [](const ReportFilter& filter, const FilterCounts& counts) {
         return "no report of device " + joined(filter.devices) +
                "; devices there: " + some_of(counts.devices);
     }},
    {"--error", false, [](const ReportFilter& filter) { return !filter.errors.empty(); },
     [](const ReportFilter& filter, const Report& report) {
         return report.has_error_no &&
                std::any_of(filter.errors.begin(), filter.errors.end(), [&](const ErrorRange& range) {
                    return range.first <= report.error_no && report.error_no <= range.last;
                });
     },
     [](const ReportFilter& filter, const FilterCounts& counts) {
         std::set<std::string> errors;
         for (const int32_t error_no : counts.errors) {
             errors.insert(std::to_string(error_no));
         }
         return "no report of error " + errors_of(filter.errors) + "; errors there: " + some_of(errors);
     }},
    {"--since", true, [](const ReportFilter& filter) { return !filter.since.empty(); },
     [](const ReportFilter& filter, const Report& report) {
         return !report.date.empty() && when_of(report) >= filter.since;
     },
     [](const ReportFilter& filter, const FilterCounts& counts) {
         return "no report since " + filter.since + "; the last is of " + or_none(counts.last);
     }},
    {"--until", true, [](const ReportFilter& filter) { return !filter.until.empty(); },
     [](const ReportFilter& filter, const Report& report) {
         return !report.date.empty() && when_of(report) <= filter.until;
     },
     [](const ReportFilter& filter, const FilterCounts& counts) {
         return "no report until " + filter.until + "; the first is of " + or_none(counts.first);
     }},
    {"--grep", false, [](const ReportFilter& filter) { return !filter.text.empty(); },
     [](const ReportFilter& filter, const Report& report) { return holds(report.content, filter.text); },
     [](const ReportFilter& filter, const FilterCounts&) {
         return "no report's content holds \"" + filter.text + "\"";
     }},
};

}  // namespace

bool passes(const ReportFilter& filter, const Report& report, FilterCounts* counts) {
    ++counts->reports;
    counts->phones.insert(report.phone);
    if (report.kind == ReportKind::REPORT) {
        counts->devices.insert(report.device);
    }
    if (report.has_error_no) {
        counts->errors.insert(report.error_no);
    }
    const std::string when = when_of(report);
    if (!when.empty()) {
        counts->first = counts->first.empty() ? when : std::min(counts->first, when);
        counts->last = std::max(counts->last, when);
    }
    bool is_passing = true;
    bool is_of_time = true;
    for (const Part& part : PARTS) {
        if (!part.is_given(filter)) {
            continue;
        }
        if (part.passes(filter, report)) {
            ++counts->passing[part.option];
        } else if (part.is_of_time) {
            is_of_time = false;
        } else {
            is_passing = false;
        }
    }
    if (is_passing && !is_of_time && when.empty()) {
        ++counts->without_date;
    }
    return is_passing && is_of_time;
}

bool passes(const ReportFilter& filter, const std::string& phone) {
    return filter.phones.empty() || fits_any(filter.phones, phone);
}

void FilterCounts::add(const FilterCounts& other) {
    reports += other.reports;
    without_date += other.without_date;
    for (const auto& [option, count] : other.passing) {
        passing[option] += count;
    }
    phones.insert(other.phones.begin(), other.phones.end());
    devices.insert(other.devices.begin(), other.devices.end());
    errors.insert(other.errors.begin(), other.errors.end());
    if (first.empty() || (!other.first.empty() && other.first < first)) {
        first = other.first;
    }
    last = std::max(last, other.last);
}

std::vector<std::string> why_none(const ReportFilter& filter, const FilterCounts& counts) {
    if (counts.reports == 0) {
        // Phones that the filter leaves out, which is the first part, are not even read.
        return {filter.phones.empty() ? "no report was found" : PARTS[0].why_none(filter, counts)};
    }
    std::vector<std::string> lines;
    std::vector<std::string> passing;
    for (const Part& part : PARTS) {
        const auto count = counts.passing.find(part.option);
        if (!part.is_given(filter)) {
            continue;
        }
        if (count == counts.passing.end()) {
            lines.push_back(part.why_none(filter, counts));
        } else {
            passing.push_back(std::to_string(count->second) + " " + part.option);
        }
    }
    if (lines.empty()) {
        lines.push_back("no report passes all filters; alone: " + joined(passing));
    }
    if (counts.without_date > 0) {
        lines.push_back(counted(counts.without_date, "report") + " without a date left out");
    }
    return lines;
}

}  // namespace tools
