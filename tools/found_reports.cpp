// Joining what stands in several files.
#include "tools/found_reports.h"

#include <algorithm>
#include <functional>
#include <tuple>
#include <utility>

namespace tools {
namespace {

// A phone leaves far less. More is damage, or made to do harm.
constexpr size_t BYTES_MAX = 256 * 1024 * 1024;
constexpr size_t REPORTS_MAX = 100000;
constexpr size_t PLACES_MAX = 2000000;  // of all reports together

bool are_same(const Report& left, const Report& right) {
    const auto facts = [](const Report& report) {
        return std::tie(report.head, report.content, report.cut, report.error_no, report.date, report.time,
                        report.bytes);
    };
    return facts(left) == facts(right);
}

size_t size_of(const std::vector<Attachment>& attachments) {
    size_t size = 0;
    for (const Attachment& attachment : attachments) {
        size += attachment.name.size();
    }
    return size;
}

}  // namespace

void FoundReports::make_room(size_t bytes) {
    if (bytes > BYTES_MAX - bytes_ || reports_.size() >= REPORTS_MAX || places_ >= PLACES_MAX) {
        throw Unreadable("is not read to its end: there is too much in all the files together");
    }
    bytes_ += bytes;
}

size_t FoundReports::add(Report report, const ReportPlace& place, size_t key) {
    make_room(place.file.size() + place.member.size());
    ++places_;
    const auto known = index_by_key_.find(key);
    if (known != index_by_key_.end() && are_same(reports_[known->second], report)) {
        reports_[known->second].places.push_back(place);
        return known->second;
    }
    make_room(report.head.size() + report.processes.size() + report.content.size() +
              size_of(report.attachments));
    report.places = {place};
    reports_.push_back(std::move(report));
    index_by_key_[key] = reports_.size() - 1;
    return reports_.size() - 1;
}

std::vector<size_t> FoundReports::add_record(std::vector<Report> reports, const ReportPlace& place) {
    // The daemon writes each report to one of the rolling files: the same in two of them is two reports.
    const std::string name = last_part(place.file);
    const bool is_rolling =
        place.member.empty() && is_record_name(name) && name != "dmd_commercial_record.txt";
    std::unordered_map<size_t, size_t> own;
    auto& occurrences = is_rolling ? rolling_[place.file.substr(0, place.file.size() - name.size())] : own;
    std::vector<size_t> indices;
    for (Report& report : reports) {
        const size_t hash = std::hash<std::string>()(report.head + report.content);
        const size_t occurrence = ++occurrences[hash];
        const size_t key = hash + 2 * occurrence + (report.cut ? 1 : 0);
        indices.push_back(add(std::move(report), place, key));
    }
    return indices;
}

void FoundReports::add_archive(const std::string& path, const DumpName& name,
                               const std::vector<size_t>& reports, std::vector<Attachment> attachments) {
    // An archive is made right after its report is written: it is the last one that fits.
    const auto made_for = std::find_if(reports.rbegin(), reports.rend(), [&](size_t index) {
        return reports_[index].error_no == name.error_no && reports_[index].time == name.time;
    });
    if (made_for == reports.rend()) {
        return;
    }
    Report& report = reports_[*made_for];
    // Of two archives of one name, as an interrupted dump leaves them, that with more in it.
    if (report.archive.empty() || report.attachments.size() < attachments.size()) {
        make_room(size_of(attachments));
        report.archive = path;
        report.attachments = std::move(attachments);
    }
}

std::vector<Report> FoundReports::take() {
    for (Report& report : reports_) {
        std::stable_partition(report.places.begin(), report.places.end(),
                              [](const ReportPlace& place) { return place.member.empty(); });
    }
    const auto when = [](const Report& report) {
        return std::make_tuple(report.date.empty(), std::cref(report.date), std::cref(report.time));
    };
    std::stable_sort(reports_.begin(), reports_.end(),
                     [&](const Report& left, const Report& right) { return when(left) < when(right); });
    int number = 0;
    for (Report& report : reports_) {
        report.number = ++number;
    }
    return std::move(reports_);
}

}  // namespace tools
