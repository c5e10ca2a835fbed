// What each file holds: a record, an archive with one, or a dump of its own.
#include "tools/phone_reports.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "tools/archive_reader.h"
#include "tools/dump_name.h"
#include "tools/found_reports.h"
#include "tools/pulled_file.h"
#include "tools/record_reader.h"
#include "tools/stable_hash.h"
#include "tools/terminal.h"

namespace tools {
namespace {

// A phone leaves far less. More is damage, or made to do harm.
constexpr size_t RECORD_MAX = 64 * 1024 * 1024;  // bytes of one record
constexpr size_t REPORTS_MAX = 100000;           // of one record
constexpr int MEMBERS_MAX = 10000;               // of one archive

class Collector {
  public:
    explicit Collector(std::string phone) : phone_(std::move(phone)) {}

    void take_file(const FoundFile& found);
    PhoneReports finish();

  private:
    void read_record_file(const std::string& path, PulledFile* file);
    void read_dump_file(const FoundFile& found, const DumpName& name, PulledFile* file);
    void read_archive(const FoundFile& found, const DumpName& name, PulledFile* file);
    std::string read_whole(const std::string& path, const std::function<std::string_view()>& read);
    std::vector<size_t> take_record(const ReportPlace& place, const std::string& bytes, bool is_cut);
    void take_dump(const FoundFile& found, const DumpName& name, Report dump, int64_t second, uint64_t hash);
    void note(const std::string& file, const std::string& text) { problems_.push_back({phone_, file, text}); }
    // Notes what is wrong with a file of which reports were taken.
    void note_damage(const std::string& file, const std::string& damage);

    const std::string phone_;
    FoundReports reports_;
    std::vector<Problem> problems_;
    size_t files_ = 0;
};

void Collector::take_file(const FoundFile& found) {
    const std::string& path = found.path;
    try {
        PulledFile file(found);
        ++files_;
        const std::optional<DumpName> name = parse_dump_name(path);
        const bool is_dump_of_bytes = name && !name->is_archive;
        if (file.is_empty()) {
            note(path, found.cut ? "cannot be read" : "is empty");
        } else if (name && name->is_gzip && !file.is_gzip()) {
            note(path, "is not compressed as its name says, and is not read");
        } else if (is_dump_of_bytes) {
            read_dump_file(found, *name, &file);
        } else if (name && is_tar(file.peek())) {
            read_archive(found, *name, &file);
        } else {
            read_record_file(path, &file);
        }
    } catch (const Unreadable& error) {
        note(path, error.what());
    }
    if (found.damaged) {
        reports_.add_damage(path);
    }
}

void Collector::note_damage(const std::string& file, const std::string& damage) {
    if (!damage.empty()) {
        note(file, damage);
        reports_.add_damage(file);
    }
}

void Collector::read_record_file(const std::string& path, PulledFile* file) {
    const std::string bytes = read_whole(path, [file] { return file->read(); });
    // That a file is cut is all that is said of a piece of an archive's first header.
    const bool is_piece = file->is_cut() && (bytes.empty() || parse_dump_name(path));
    if (!is_piece) {
        take_record({path, ""}, bytes, file->is_cut());
    }
    note_damage(path, file->damage());
}

void Collector::read_dump_file(const FoundFile& found, const DumpName& name, PulledFile* file) {
    Report dump;
    uint64_t hash = stable_hash("");  // of the bytes, which are not kept
    for (std::string_view piece = file->read(); !piece.empty(); piece = file->read()) {
        hash = stable_hash(piece, hash);
    }
    dump.bytes = file->bytes_read();
    dump.cut = file->is_cut();
    take_dump(found, name, std::move(dump), file->gzip_time(), hash);
    note_damage(found.path, file->damage());
}

std::string Collector::read_whole(const std::string& path, const std::function<std::string_view()>& read) {
    std::string bytes;
    for (std::string_view piece = read(); !piece.empty(); piece = read()) {
        if (piece.size() > RECORD_MAX - bytes.size()) {
            bytes += piece.substr(0, RECORD_MAX - bytes.size());
            note(path, "holds a longer record than any phone makes, of which only the first " +
                           counted(bytes.size(), "byte") + " are read");
            break;
        }
        bytes += piece;
    }
    return bytes;
}

void Collector::read_archive(const FoundFile& found, const DumpName& name, PulledFile* file) {
    const std::string& path = found.path;
    ArchiveReader archive(file);
    Report rest;  // the archive without its records
    bool has_record = false;
    int members = 0;
    int64_t second = 0;
    uint64_t hash = stable_hash("");
    std::vector<size_t> reports;
    while (archive.next()) {
        const std::string member = archive.name();
        if (++members > MEMBERS_MAX) {
            note(path,
                 "holds more than " + std::to_string(MEMBERS_MAX) + " members, of which no more are read");
            break;
        }
        second = std::max(second, archive.time());
        if (archive.is_file() && is_record_name(member)) {
            has_record = true;
            const std::string bytes = read_whole(path, [&archive] { return archive.read(); });
            const std::vector<size_t> taken = take_record({path, member}, bytes, archive.is_cut());
            reports.insert(reports.end(), taken.begin(), taken.end());
        } else if (!archive.is_folder()) {
            Attachment attachment = {member, 0};
            for (std::string_view piece = archive.read(); !piece.empty(); piece = archive.read()) {
                attachment.bytes += piece.size();
            }
            hash = stable_hash(member + '/' + std::to_string(attachment.bytes), hash);
            rest.bytes += attachment.bytes;
            rest.attachments.push_back(std::move(attachment));
        }
    }
    if (has_record) {
        reports_.add_archive(path, name, reports, std::move(rest.attachments));
    } else if (members > 0) {
        rest.cut = !archive.is_complete();
        take_dump(found, name, std::move(rest), file->gzip_time() != 0 ? file->gzip_time() : second, hash);
    }
    note_damage(path, archive.damage());
}

// Returns the indices of the reports that the record holds, in its order.
std::vector<size_t> Collector::take_record(const ReportPlace& place, const std::string& bytes, bool is_cut) {
    const std::string where = place.member.empty() ? "" : "in " + place.member + ": ";
    Record record = read_record(bytes, REPORTS_MAX);
    if (record.reports.empty()) {
        note(place.file,
             where + "holds no report" +
                 (bytes.empty() ? "" : ", but " + counted(bytes.size(), "byte") + " of something else"));
    } else if (record.bytes_before > 0) {
        note(place.file, where + counted(record.bytes_before, "byte") +
                             " before the first report belong to none: its beginning is missing");
    }
    if (record.bytes_after > 0) {
        note(place.file, where + "holds more than " + std::to_string(REPORTS_MAX) + " reports: the last " +
                             counted(record.bytes_after, "byte") + " are not read");
    }
    if (!record.reports.empty()) {
        Report& last = record.reports.back();
        if (is_cut || bytes.size() == RECORD_MAX) {
            last.cut = true;
        } else if (last.cut) {
            note(place.file, where + "ends within the head of a report");
        }
    }
    return reports_.add_record(std::move(record.reports), place);
}

void Collector::take_dump(const FoundFile& found, const DumpName& name, Report dump, int64_t second,
                          uint64_t hash) {
    dump.kind = ReportKind::DUMP;
    dump.error_no = name.error_no;
    dump.time = name.time;
    dump.date = date_of_dump(name.time, second);
    dump.dump = found;
    // A copy in another folder is the same dump.
    const std::string identity = last_part(found.path) + '/' + std::to_string(second) + '/' +
                                 std::to_string(dump.bytes) + '/' + std::to_string(hash) +
                                 (dump.cut ? "/cut" : "");
    reports_.add(std::move(dump), {found.path, ""}, stable_hash(identity));
}

PhoneReports Collector::finish() {
    PhoneReports found = {phone_, reports_.take(), std::move(problems_), files_};
    for (Report& report : found.reports) {
        report.phone = phone_;
    }
    return found;
}

}  // namespace

PhoneReports read_phone(const FoundPhone& phone) {
    Collector collector(phone.name);
    for (const FoundFile& file : phone.files) {
        collector.take_file(file);
    }
    return collector.finish();
}

std::vector<Report> all_by_time(std::vector<PhoneReports> phones) {
    std::vector<Report> all;
    for (PhoneReports& phone : phones) {
        std::move(phone.reports.begin(), phone.reports.end(), std::back_inserter(all));
    }
    sort_by_time(&all);
    int number = 0;
    for (Report& report : all) {
        report.number = ++number;
    }
    return all;
}

bool is_archive(const Report& dump) {
    const std::optional<DumpName> name = parse_dump_name(dump.dump.path);
    return name && name->is_archive;
}

void read_dump(const Report& dump, const std::function<bool(std::string_view)>& take) {
    PulledFile file(dump.dump);
    for (std::string_view piece = file.read(); !piece.empty() && take(piece); piece = file.read()) {
    }
}

}  // namespace tools
