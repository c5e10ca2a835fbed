// Reads any bytes as a record, and checks that every byte is part of a report or told to be part of none.
#include <algorithm>

#include "output/bug_head.h"
#include "tests/fuzz/entry_lines.h"
#include "tools/record_reader.h"

namespace {

using tools::Report;

constexpr size_t REPORTS_MAX = 4;

std::string bytes_of(const Report& report) {
    return report.head + report.content;
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The head of a report says what its fields do, in this order.
void check_head(const Report& report) {
    size_t at = 0;
    const std::string fields[] = {HEAD_TITLE,    report.date,        report.time,
                                  report.device, report.test_switch, report.processes};
    for (const std::string& field : fields) {
        at = report.head.find(field, at);
        require(at != std::string::npos);
        at += field.size();
    }
    require(report.bytes == report.content.size());
    require(report.cut || ends_with(report.head, HEAD_CONTENT));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const tools::Record all = tools::read_record(bytes, size + 1);
    require(all.bytes_after == 0);
    size_t at = all.bytes_before;
    for (const Report& report : all.reports) {
        const std::string own = bytes_of(report);
        require(!own.empty() && bytes.compare(at, own.size(), own) == 0);
        at += own.size();
        check_head(report);
    }
    require(at == size);

    const tools::Record some = tools::read_record(bytes, REPORTS_MAX);
    require(some.reports.size() == std::min(all.reports.size(), REPORTS_MAX));
    at = some.bytes_before;
    for (size_t i = 0; i < some.reports.size(); ++i) {
        require(bytes_of(some.reports[i]) == bytes_of(all.reports[i]));
        at += bytes_of(some.reports[i]).size();
    }
    require(at + some.bytes_after == size);

    // A record that is cut holds the same reports up to the last. What is read as a head because it is cut
    // may have been content of the one before.
    const tools::Record cut = tools::read_record(bytes.substr(0, size / 2), size + 1);
    size_t same = cut.reports.size();
    same -= same > 0 && cut.reports.back().cut ? 1 : 0;
    for (size_t i = 0; i + 1 < same; ++i) {
        require(bytes_of(cut.reports[i]) == bytes_of(all.reports[i]));
        require(cut.reports[i].device == all.reports[i].device);
    }
    return 0;
}
