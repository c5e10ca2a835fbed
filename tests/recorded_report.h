// Taking record files apart, report by report.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "output/bug_head.h"

// A report as it stands in a record file. What does not stand in its place is empty.
struct recorded_report {
    bool has_full_head = true;  // every line of it in its place
    std::string_view device, error_no, test_switch, processes;
    std::string_view text;  // behind the head, as far as there is one
};

// Takes the first report from *record, up to the next head or to the end. What it returns points into the
// record.
inline recorded_report take_report(std::string_view* record) {
    recorded_report report;
    std::string_view rest = record->substr(0, record->find(HEAD_TITLE, 1));
    record->remove_prefix(rest.size());
    // Takes the label, which must stand here, the value, and the text behind it.
    const auto value_of = [&](const std::string& label, const char* behind) -> std::string_view {
        const size_t end = rest.find(behind, label.size());
        report.has_full_head =
            report.has_full_head && rest.substr(0, label.size()) == label && end != std::string_view::npos;
        if (!report.has_full_head) {
            return {};
        }
        const std::string_view value = rest.substr(label.size(), end - label.size());
        rest.remove_prefix(end + strlen(behind));
        return value;
    };
    value_of(std::string(HEAD_TITLE) + HEAD_DATE, "\n");
    value_of(HEAD_TIME, "\n");
    report.device = value_of(HEAD_DEVICE, "\n");
    report.error_no = value_of(HEAD_ERROR_NO, "\n");
    report.test_switch = value_of(HEAD_TEST_SWITCH, "\n");
    report.processes = value_of(HEAD_PROCESSES, HEAD_CONTENT);
    report.text = rest;
    return report;
}
