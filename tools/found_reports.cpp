// Joining what stands in several files.
#include "tools/found_reports.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iterator>
#include <string_view>
#include <tuple>
#include <utility>

#include "output/bug_head.h"
#include "tools/stable_hash.h"

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

// A report as the record has it.
std::string bytes_of(const Report& report) {
    return report.head + report.content;
}

// Whether a file or member holds both: then they are two reports.
bool share_a_place(const Report& left, const Report& right) {
    const auto is_of_right = [&](const ReportPlace& place) {
        return std::any_of(right.places.begin(), right.places.end(), [&](const ReportPlace& other) {
            return place.file == other.file && place.member == other.member;
        });
    };
    return std::any_of(left.places.begin(), left.places.end(), is_of_right);
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
        throw Unreadable("is not read to its end: there is too much in all the files of the phone together");
    }
    bytes_ += bytes;
}

size_t FoundReports::add(Report report, const ReportPlace& place, uint64_t key) {
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
    char digits[17];
    snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(key));
    report.key = digits;
    reports_.push_back(std::move(report));
    index_by_key_[key] = reports_.size() - 1;
    return reports_.size() - 1;
}

std::vector<size_t> FoundReports::add_record(std::vector<Report> reports, const ReportPlace& place) {
    // The daemon writes each report to one of the rolling files: the same in two of them is two reports.
    const std::string name = last_part(place.file);
    const bool is_rolling =
        place.member.empty() && is_record_name(name) && name != "dmd_commercial_record.txt";
    std::unordered_map<uint64_t, size_t> own;
    auto& occurrences = is_rolling ? rolling_[place.file.substr(0, place.file.size() - name.size())] : own;
    std::vector<size_t> indices;
    for (Report& report : reports) {
        const uint64_t hash = stable_hash(report.content, stable_hash(report.head));
        const size_t occurrence = ++occurrences[hash];
        // Databases know reports by it: it must stay as it is.
        const uint64_t key = hash + 2 * occurrence + (report.cut ? 1 : 0);
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

void FoundReports::add_damage(const std::string& path) {
    for (Report& report : reports_) {
        for (ReportPlace& place : report.places) {
            place.damaged = place.damaged || place.file == path;
        }
    }
}

// Finds the report that a copy which is cut is the beginning of. The copy may end in a piece of the next
// title.
std::optional<size_t> FoundReports::find_longer(const ByBytes& by_bytes, size_t index) const {
    constexpr std::string_view TITLE = HEAD_TITLE;
    const std::string bytes = bytes_of(reports_[index]);
    const auto fits = [&](const auto& entry) {
        const Report& other = reports_[entry.second];
        return entry.second != index && !other.places.empty() && !share_a_place(reports_[index], other);
    };
    for (auto found = by_bytes.lower_bound(bytes);
         found != by_bytes.end() && found->first.compare(0, bytes.size(), bytes) == 0; ++found) {
        if (fits(*found)) {
            return found->second;
        }
    }
    for (size_t size = 1; size < std::min(TITLE.size(), bytes.size()); ++size) {
        const size_t end = bytes.size() - size;
        if (bytes.compare(end, size, TITLE, 0, size) == 0) {
            const auto [first, last] = by_bytes.equal_range(bytes.substr(0, end));
            const auto found = std::find_if(first, last, fits);
            if (found != last) {
                return found->second;
            }
        }
    }
    return std::nullopt;
}

void FoundReports::join_cut_copies() {
    std::vector<size_t> cut;
    for (size_t i = 0; i < reports_.size(); ++i) {
        // Of what is cut before its time it is not known which report it is.
        if (reports_[i].cut && reports_[i].kind == ReportKind::REPORT && !reports_[i].time.empty()) {
            cut.push_back(i);
        }
    }
    ByBytes by_bytes;
    for (size_t i = 0; i < reports_.size() && !cut.empty(); ++i) {
        if (reports_[i].kind == ReportKind::REPORT) {
            by_bytes.emplace(bytes_of(reports_[i]), i);
        }
    }
    // The shortest first: so a piece goes by way of a longer one to the whole.
    const auto size_of = [&](size_t i) { return reports_[i].head.size() + reports_[i].content.size(); };
    std::stable_sort(cut.begin(), cut.end(),
                     [&](size_t left, size_t right) { return size_of(left) < size_of(right); });
    for (const size_t index : cut) {
        if (const std::optional<size_t> longer = find_longer(by_bytes, index)) {
            Report& copy = reports_[index];
            Report& report = reports_[*longer];
            std::move(copy.places.begin(), copy.places.end(), std::back_inserter(report.places));
            copy.places.clear();
            if (report.archive.empty()) {
                report.archive = std::move(copy.archive);
                report.attachments = std::move(copy.attachments);
            }
        }
    }
    const auto is_joined = [](const Report& report) { return report.places.empty(); };
    reports_.erase(std::remove_if(reports_.begin(), reports_.end(), is_joined), reports_.end());
}

std::vector<Report> FoundReports::take() {
    join_cut_copies();
    for (Report& report : reports_) {
        std::stable_partition(report.places.begin(), report.places.end(),
                              [](const ReportPlace& place) { return place.member.empty(); });
        report.damaged = std::all_of(report.places.begin(), report.places.end(),
                                     [](const ReportPlace& place) { return place.damaged; });
    }
    sort_by_time(&reports_);
    return std::move(reports_);
}

void sort_by_time(std::vector<Report>* reports) {
    const auto when = [](const Report& report) {
        return std::make_tuple(report.date.empty(), std::cref(report.date), std::cref(report.time));
    };
    std::stable_sort(reports->begin(), reports->end(),
                     [&](const Report& left, const Report& right) { return when(left) < when(right); });
}

}  // namespace tools
