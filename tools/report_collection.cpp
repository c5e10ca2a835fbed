// Collecting the reports: what each file holds, and which of them are the same.
#include "tools/report_collection.h"

#include <algorithm>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "tools/dump_name.h"
#include "tools/found_files.h"
#include "tools/pulled_file.h"
#include "tools/record_reader.h"

namespace tools {
namespace {

// A phone leaves far less. More is a damaged file, or one made to do harm.
constexpr size_t RECORD_MAX = 64 * 1024 * 1024;  // bytes of one record
constexpr size_t KEPT_MAX = 256 * 1024 * 1024;   // bytes of all that is kept
constexpr size_t REPORTS_MAX = 100000;
constexpr size_t PLACES_MAX = 2000000;  // of all reports together
constexpr size_t JOINED_MAX = 1000;  // cut reports that are looked for in all others; each file ends in one
constexpr int MEMBERS_MAX = 10000;   // of one archive

constexpr size_t NOWHERE = static_cast<size_t>(-1);

std::string bytes_text(uint64_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

class Collector {
  public:
    explicit Collector(std::vector<Problem> problems) : problems_(std::move(problems)) {}

    void take_file(const std::string& path);
    Collection finish();

  private:
    // An archive with a record, and what else it holds.
    struct Packed {
        std::string path;
        DumpName name;
        std::vector<size_t> reports;
        std::vector<Attachment> attachments;
    };

    void read_file(const std::string& path, PulledFile* file);
    void read_archive(const std::string& path, PulledFile* file);
    void read_plain(const std::string& path, PulledFile* file);
    std::string read_whole(const std::string& path, const std::function<std::string_view()>& read);
    std::vector<size_t> take_record(const ReportPlace& place, const std::string& bytes, bool is_cut,
                                    const std::optional<DumpName>& archive = std::nullopt);
    size_t take_report(RecordReport report, const ReportPlace& place, int occurrence);
    void take_dump(const std::string& path, const DumpName& name, Report dump, int64_t time, size_t hash);
    void join_cut_reports();
    void find_archives();
    bool keep(size_t bytes, const std::string& path);
    void note(const std::string& file, const std::string& text) { problems_.push_back({file, text}); }

    std::vector<RecordReport> reports_;                 // dumps among them, which have no head
    std::unordered_map<size_t, size_t> index_by_hash_;  // of a whole report's bytes and occurrence
    std::vector<size_t> cut_at_end_;                    // reports that may be the beginning of another
    std::unordered_map<std::string, std::unordered_map<size_t, int>> rolling_;  // occurrences by folder
    std::unordered_map<std::string, size_t> dumps_;  // by name, time, size and hash
    std::vector<size_t> before_;  // for each report the one before it where it was first found, or NOWHERE
    std::vector<size_t> joined_;  // for each report the one it is
    std::vector<Packed> packed_;
    std::vector<Problem> problems_;
    size_t kept_ = 0;
    size_t places_ = 0;
    size_t files_ = 0;
};

// Whether there is room for so many bytes more; once in each file, a problem when not.
bool Collector::keep(size_t bytes, const std::string& path) {
    if (bytes > KEPT_MAX - kept_ || reports_.size() >= REPORTS_MAX || places_ >= PLACES_MAX) {
        const std::string text = "is not read to its end: there is too much in all the files together";
        if (problems_.empty() || problems_.back().file != path || problems_.back().text != text) {
            note(path, text);
        }
        return false;
    }
    kept_ += bytes;
    return true;
}

void Collector::take_file(const std::string& path) {
    try {
        PulledFile file(path);
        ++files_;
        read_file(path, &file);
    } catch (const Unreadable& error) {
        note(path, error.what());
    }
}

void Collector::read_file(const std::string& path, PulledFile* file) {
    const std::optional<DumpName> name = parse_dump_name(path);
    if (file->is_empty()) {
        note(path, "is empty");
    } else if (name && name->is_gzip && !file->is_gzip()) {
        note(path, "is not compressed as its name says, and is not read");
    } else if (is_tar(file->peek()) && !(name && !name->is_archive)) {
        read_archive(path, file);
    } else {
        read_plain(path, file);
        if (!file->damage().empty()) {
            note(path, file->damage());
        }
    }
}

// Reads a record, or a dump of bytes.
void Collector::read_plain(const std::string& path, PulledFile* file) {
    const std::optional<DumpName> name = parse_dump_name(path);
    if (!name || name->is_archive) {
        const std::string bytes = read_whole(path, [file] { return file->read(); });
        if (file->is_cut() && (bytes.empty() || name)) {
            return;  // a piece of an archive's first header; that it is cut is said
        }
        take_record({path, ""}, bytes, file->is_cut() || bytes.size() == RECORD_MAX);
        return;
    }
    Report dump;
    size_t hash = 0;  // of the bytes, which are not kept
    for (std::string_view piece = file->read(); !piece.empty(); piece = file->read()) {
        hash = hash * 31 + std::hash<std::string_view>()(piece);
    }
    dump.bytes = file->bytes_read();
    dump.cut = file->is_cut();
    take_dump(path, *name, std::move(dump), file->gzip_time(), hash);
}

std::string Collector::read_whole(const std::string& path, const std::function<std::string_view()>& read) {
    std::string bytes;
    for (std::string_view piece = read(); !piece.empty(); piece = read()) {
        if (piece.size() > RECORD_MAX - bytes.size()) {
            bytes += piece.substr(0, RECORD_MAX - bytes.size());
            note(path, "holds a longer record than any phone makes, of which only the first " +
                           bytes_text(bytes.size()) + " are read");
            break;
        }
        bytes += piece;
    }
    return bytes;
}

void Collector::read_archive(const std::string& path, PulledFile* file) {
    const std::optional<DumpName> name = parse_dump_name(path);
    ArchiveReader archive(file);
    Report rest;  // the archive without its records
    bool has_record = false;
    int members = 0;
    int64_t time = 0;
    std::vector<size_t> reports;
    while (archive.next()) {
        const std::string member = archive.name();
        if (++members > MEMBERS_MAX) {
            note(path,
                 "holds more than " + std::to_string(MEMBERS_MAX) + " members, of which no more are read");
            break;
        }
        time = std::max(time, archive.time());
        if (archive.is_file() && is_record_name(member)) {
            has_record = true;
            const std::string bytes = read_whole(path, [&archive] { return archive.read(); });
            const bool is_cut = archive.is_cut() || bytes.size() == RECORD_MAX;
            for (const size_t report : take_record({path, member}, bytes, is_cut, name)) {
                reports.push_back(report);
            }
        } else if (!archive.is_folder() && keep(member.size(), path)) {
            Attachment attachment = {member, 0};
            for (std::string_view piece = archive.read(); !piece.empty(); piece = archive.read()) {
                attachment.bytes += piece.size();
            }
            rest.bytes += attachment.bytes;
            rest.attachments.push_back(std::move(attachment));
            if (!name && parse_dump_name(member)) {
                note(path, "holds " + member + ", which is read only when it is unpacked");
            }
        }
    }
    if (!archive.damage().empty()) {
        note(path, archive.damage());
    }
    if (!name) {
        if (!has_record) {
            note(path, "is an archive without a record, and its name is not that of a dump");
        }
    } else if (has_record) {
        packed_.push_back({path, *name, std::move(reports), std::move(rest.attachments)});
    } else if (members > 0) {
        rest.cut = !archive.is_complete();
        size_t hash = 0;
        for (const Attachment& attachment : rest.attachments) {
            hash = hash * 31 +
                   std::hash<std::string>()(attachment.name + '/' + std::to_string(attachment.bytes));
        }
        take_dump(path, *name, std::move(rest), file->gzip_time() != 0 ? file->gzip_time() : time, hash);
    }
}

// An archive is packed right after the report that it is named for was written. What looks like a beginning
// of the next head there is the end of that report's content.
void join_half_head(const DumpName& archive, std::vector<RecordReport>* reports) {
    if (reports->size() < 2 || !reports->back().report.cut) {
        return;
    }
    Report& last = (*reports)[reports->size() - 2].report;
    if (last.error_no != archive.error_no || last.time != archive.time) {
        return;
    }
    last.content += reports->back().head + reports->back().report.content;
    last.bytes = last.content.size();
    reports->pop_back();
}

// Returns the reports that the record holds, in its order. The archive is the one that holds it.
std::vector<size_t> Collector::take_record(const ReportPlace& place, const std::string& bytes, bool is_cut,
                                           const std::optional<DumpName>& archive) {
    const std::string where = place.member.empty() ? "" : "in " + place.member + ": ";
    Record record = read_record(bytes, REPORTS_MAX);
    if (archive && !is_cut) {
        join_half_head(*archive, &record.reports);
    }
    if (record.reports.empty()) {
        note(place.file,
             where + "holds no report" +
                 (bytes.empty() ? "" : ", but " + bytes_text(bytes.size()) + " of something else"));
    } else if (record.bytes_before > 0) {
        note(place.file, where + bytes_text(record.bytes_before) +
                             " before the first report belong to none: its beginning is missing");
    }
    if (record.bytes_after > 0) {
        note(place.file, where + "holds more than " + std::to_string(REPORTS_MAX) + " reports: the last " +
                             bytes_text(record.bytes_after) + " are not read");
    }
    std::vector<size_t> taken;
    // The daemon writes each report to one of the rolling files: the same in two of them is two reports.
    const std::string name = last_part(place.file);
    std::unordered_map<size_t, int> own;
    auto& occurrences = place.member.empty() && is_record_name(name) && name != "dmd_commercial_record.txt"
                            ? rolling_[place.file.substr(0, place.file.size() - name.size())]
                            : own;
    for (RecordReport& report : record.reports) {
        const bool is_last = &report == &record.reports.back();
        if (is_last && report.report.cut && !is_cut) {
            note(place.file, where + "ends within the head of a report");
        }
        report.report.cut = report.report.cut || (is_last && is_cut);
        const size_t hash = std::hash<std::string>()(report.head + report.report.content);
        if (!keep(place.file.size() + place.member.size(), place.file)) {
            break;
        }
        // The end of a record that is no member does not tell whether it is the right one.
        const bool may_go_on = is_last && (report.report.cut || place.member.empty());
        const size_t index = take_report(std::move(report), place, ++occurrences[hash]);
        if (index == NOWHERE) {
            break;
        }
        if (before_.size() <= index) {
            before_.resize(index + 1, NOWHERE);
            before_[index] = taken.empty() ? NOWHERE : taken.back();
        }
        taken.push_back(index);
        if (may_go_on) {
            cut_at_end_.push_back(index);
        }
    }
    return taken;
}

// Takes a report that is the occurrence-th with its bytes in its file. Returns its index.
size_t Collector::take_report(RecordReport report, const ReportPlace& place, int occurrence) {
    ++places_;
    const std::string bytes = report.head + report.report.content;
    const size_t key = std::hash<std::string>()(bytes) + static_cast<size_t>(occurrence) * 0x9e3779b9U;
    const auto [same, is_new] = index_by_hash_.insert({key, reports_.size()});
    if (!is_new) {
        RecordReport& other = reports_[same->second];
        if (other.head == report.head && other.report.content == report.report.content &&
            other.report.cut == report.report.cut) {
            other.report.places.push_back(place);
            return same->second;
        }
    }
    if (!keep(bytes.size() + report.report.processes.size(), place.file)) {
        return NOWHERE;
    }
    report.report.places = {place};
    reports_.push_back(std::move(report));
    return reports_.size() - 1;
}

// Takes a dump whose content has that hash. A copy of one in another folder is the same dump.
void Collector::take_dump(const std::string& path, const DumpName& name, Report dump, int64_t time,
                          size_t hash) {
    dump.kind = ReportKind::DUMP;
    dump.error_no = name.error_no;
    dump.time = name.time;
    dump.date = date_of_dump(name.time, time);
    dump.places = {{path, ""}};
    if (!keep(path.size(), path)) {
        return;
    }
    const std::string key = last_part(path) + '/' + std::to_string(time) + '/' + std::to_string(dump.bytes) +
                            (dump.cut ? "/cut/" : "/") + std::to_string(hash);
    const auto [same, is_new] = dumps_.insert({key, reports_.size()});
    if (is_new) {
        reports_.push_back({std::move(dump), ""});
    } else {
        reports_[same->second].report.places.push_back({path, ""});
    }
}

// A report that is cut is the one whose beginning it is, in another file.
void Collector::join_cut_reports() {
    joined_.resize(reports_.size());
    before_.resize(reports_.size(), NOWHERE);
    for (size_t i = 0; i < joined_.size(); ++i) {
        joined_[i] = i;
    }
    const auto size = [this](size_t i) {
        return reports_[i].head.size() + reports_[i].report.content.size();
    };
    const auto stands_in = [](const Report& report, const ReportPlace& place) {
        return std::any_of(report.places.begin(), report.places.end(), [&](const ReportPlace& other) {
            return other.file == place.file && other.member == place.member;
        });
    };
    // What does not look cut is, when only its record has it and another copy of that record has more.
    const auto is_cut_copy = [](const Report& part, const Report& whole) {
        const std::string name = last_part(part.places[0].file);
        return part.places.size() == 1 && part.bytes < whole.bytes &&
               std::any_of(whole.places.begin(), whole.places.end(), [&](const ReportPlace& place) {
                   return last_part(place.member.empty() ? place.file : place.member) == name;
               });
    };
    // A piece of a head without the number fits many: only one that comes after the same report is it.
    const auto may_be = [this](size_t part, size_t whole) {
        return reports_[part].report.has_error_no ||
               (before_[part] != NOWHERE && before_[part] == before_[whole]);
    };
    // The longer ones first: they may be what the shorter ones are the beginning of.
    std::sort(cut_at_end_.begin(), cut_at_end_.end());
    cut_at_end_.erase(std::unique(cut_at_end_.begin(), cut_at_end_.end()), cut_at_end_.end());
    std::stable_sort(cut_at_end_.begin(), cut_at_end_.end(),
                     [&](size_t left, size_t right) { return size(left) > size(right); });
    cut_at_end_.resize(std::min(cut_at_end_.size(), JOINED_MAX));
    for (const size_t cut : cut_at_end_) {
        RecordReport& part = reports_[cut];
        for (size_t i = 0; i < reports_.size(); ++i) {
            RecordReport& whole = reports_[i];
            if (i == cut || joined_[i] != i || whole.report.kind == ReportKind::DUMP ||
                (whole.report.cut && size(i) <= size(cut)) || !is_beginning_of(part, whole) ||
                !may_be(cut, i) || stands_in(whole.report, part.report.places[0]) ||
                (!part.report.cut && !is_cut_copy(part.report, whole.report))) {
                continue;
            }
            if (!part.report.cut) {
                note(part.report.places[0].file,
                     "ends within a report, which stands whole in " + whole.report.places[0].file);
            }
            joined_[cut] = i;
            auto& places = part.report.places;
            whole.report.places.insert(whole.report.places.end(), places.begin(), places.end());
            break;
        }
    }
}

// Tells the reports which archives were made for them.
void Collector::find_archives() {
    for (Packed& packed : packed_) {
        // An archive is made right after its report is written: it is the last one that fits.
        const auto made_for = std::find_if(packed.reports.rbegin(), packed.reports.rend(), [&](size_t i) {
            const Report& report = reports_[joined_[i]].report;
            return report.error_no == packed.name.error_no && report.time == packed.name.time;
        });
        if (made_for == packed.reports.rend()) {
            continue;
        }
        Report& report = reports_[joined_[*made_for]].report;
        // Of two archives of one name, as an interrupted dump leaves them, that with more in it.
        if (report.archive.empty() || report.attachments.size() < packed.attachments.size()) {
            report.archive = packed.path;
            report.attachments = std::move(packed.attachments);
        }
    }
}

Collection Collector::finish() {
    join_cut_reports();
    find_archives();
    Collection collection;
    for (size_t i = 0; i < reports_.size(); ++i) {
        if (joined_[i] == i) {
            Report& report = reports_[i].report;
            std::stable_partition(report.places.begin(), report.places.end(),
                                  [](const ReportPlace& place) { return place.member.empty(); });
            collection.reports.push_back(std::move(report));
        }
    }
    const auto when = [](const Report& report) {
        return std::make_tuple(report.date.empty(), std::cref(report.date), std::cref(report.time));
    };
    std::stable_sort(collection.reports.begin(), collection.reports.end(),
                     [&](const Report& left, const Report& right) { return when(left) < when(right); });
    int number = 0;
    for (Report& report : collection.reports) {
        report.number = ++number;
    }
    collection.problems = std::move(problems_);
    collection.files = files_;
    return collection;
}

}  // namespace

Collection collect_reports(const std::vector<std::string>& paths) {
    std::vector<Problem> problems;
    const std::vector<std::string> files = find_files(paths, &problems);
    Collector collector(std::move(problems));
    for (const std::string& path : files) {
        collector.take_file(path);
    }
    return collector.finish();
}

bool is_archive(const Report& dump) {
    const std::optional<DumpName> name = parse_dump_name(dump.places[0].file);
    return name && name->is_archive;
}

void read_dump(const Report& dump, const std::function<bool(std::string_view)>& take) {
    PulledFile file(dump.places[0].file);
    for (std::string_view piece = file.read(); !piece.empty() && take(piece); piece = file.read()) {
    }
}

}  // namespace tools
