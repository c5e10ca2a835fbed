// Choosing reports by phone, device, error number, time and text.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/report.h"

namespace tools {

struct ErrorRange {
    int32_t first;
    int32_t last;
};

struct ReportFilter {
    std::vector<std::string> phones;   // patterns as in a shell, of which one must fit; none: any phone
    std::vector<std::string> devices;  // likewise
    std::vector<ErrorRange> errors;    // of which one must hold it; none: any error
    std::string since;                 // YYYY-MM-DD HH:MM:SS; empty: any time
    std::string until;
    std::string text;  // that the content must hold, in any case; empty: any content

    bool lets_all_through() const {
        return phones.empty() && devices.empty() && errors.empty() && since.empty() && until.empty() &&
               text.empty();
    }
};

// What there was before the filter, so that it can be said why nothing is left.
struct FilterCounts {
    size_t reports = 0;
    size_t without_date = 0;                // left out for that alone
    std::map<std::string, size_t> passing;  // by option: what it would let through alone
    std::set<std::string> phones;
    std::set<std::string> devices;
    std::set<int32_t> errors;
    std::string first;  // YYYY-MM-DD HH:MM:SS
    std::string last;

    void add(const FilterCounts& other);
};

// Whether the filter lets the report through. Counts it.
bool passes(const ReportFilter& filter, const Report& report, FilterCounts* counts);

// Whether the filter lets reports of the phone through at all.
bool passes(const ReportFilter& filter, const std::string& phone);

// Why no report is left, a line for each reason.
std::vector<std::string> why_none(const ReportFilter& filter, const FilterCounts& counts);

}  // namespace tools
