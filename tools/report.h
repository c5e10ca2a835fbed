// A bug report, or a dump, as it was found in the files pulled from a phone.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/owned.h"

namespace tools {

// A file that was pulled from a phone: one of the disk, or one that was packed in a pull and now stands in
// the spool.
struct FoundFile {
    std::string path;                            // as it is shown; of the disk, where it is
    std::shared_ptr<const UniqueFd> spool = {};  // null: of the disk
    uint64_t begin = 0;                          // its place in the spool
    uint64_t end = 0;
    bool cut = false;      // its pull ends within it
    bool damaged = false;  // its pull is damaged, and what it holds may be
};

enum class ReportKind {
    REPORT,  // of a record file: a head and a content
    DUMP,    // a compressed dump of its own: no head, so its device and test switch are not known
};

// Where a report stands: a file as it was named or found, and the member when that file is an archive.
struct ReportPlace {
    std::string file;
    std::string member;
    bool damaged = false;  // the file is
};

// What an archive holds beside the record.
struct Attachment {
    std::string name;
    uint64_t bytes;
};

struct Report {
    ReportKind kind = ReportKind::REPORT;
    int number = 0;            // in the table of all reports, from 1; 0 before all are there
    std::string phone;         // its name
    std::string key;           // 16 hexadecimal digits: in every run the same for the same report of a phone
    std::string date;          // YYYY-MM-DD on the phone; of a dump worked out, empty when that cannot be
    std::string time;          // HH:MM:SS on the phone
    std::string device;        // empty when not known
    int32_t error_no = 0;      // as the driver gave it
    bool has_error_no = true;  // false when the head is cut before it
    std::string test_switch;   // empty when not known or not given
    std::string head;          // its bytes in the record up to its content; of a dump empty
    std::string processes;     // the process list of a full head
    std::string content;       // of a report the driver's text; of a dump empty, see read_dump
    uint64_t bytes = 0;        // size of the content, of a dump uncompressed
    bool cut = false;          // its end, or a part of its head, is missing
    bool damaged = false;      // it was found in damaged files only
    std::string error_name;    // what the team calls its error number; empty when nothing
    std::vector<ReportPlace> places;      // where it was found, at least one; the first is the one to show
    std::string archive;                  // the dump archive made for it; empty when there is none
    std::vector<Attachment> attachments;  // what that archive, or this dump, holds beside
    FoundFile dump;                       // of a dump: its bytes
};

// The error number as text; empty when the head is cut before it.
inline std::string error_text(const Report& report) {
    return report.has_error_no ? std::to_string(report.error_no) : "";
}

// Whether it was read which device the report is of, be it one without a name.
inline bool has_device(const Report& report) {
    return !report.device.empty() || (report.kind == ReportKind::REPORT && report.has_error_no);
}

// What could not be read, and why.
struct Problem {
    std::string phone;  // empty when it is of none
    std::string file;
    std::string text;
};

// A file of which nothing, or no more, can be read; its text says why.
class Unreadable : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace tools
