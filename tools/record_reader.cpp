// The grammar of a record file: heads as output/bug_head.h has them, with anything between them.
#include "tools/record_reader.h"

#include <charconv>
#include <string>
#include <utility>

#include "output/bug_head.h"
#include "output/error_info.h"

namespace tools {
namespace {

using std::string_view;

constexpr string_view TITLE = HEAD_TITLE;
constexpr string_view PROCESSES = HEAD_PROCESSES;
constexpr string_view CONTENT = HEAD_CONTENT;

constexpr size_t DEVICE_MAX = sizeof(dmd_error_info::device_name) - 1;
constexpr size_t SWITCH_MAX = sizeof(dmd_error_info::running_test_switch);

bool starts_with(string_view text, string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

enum class Match { NONE, CUT, WHOLE };

// Reads a head from the left. Once something does not fit, the match is over; it is CUT when all fitted up to
// the end of the bytes.
class Scanner {
  public:
    explicit Scanner(string_view bytes) : bytes_(bytes) {}

    Match match() const { return match_; }
    size_t position() const { return position_; }
    string_view rest() const { return bytes_.substr(position_); }

    // Reads a text in which '0' stands for any digit, and '?' for any byte. Returns what stands there, or
    // nothing when the match is over.
    std::string text(string_view shape) {
        const size_t begin = position_;
        for (size_t i = 0; i < shape.size() && match_ == Match::WHOLE; ++i) {
            if (position_ == bytes_.size()) {
                match_ = Match::CUT;
            } else if (!fits(bytes_[position_], shape[i])) {
                match_ = Match::NONE;
            } else {
                ++position_;
            }
        }
        return match_ == Match::WHOLE ? std::string(bytes_.substr(begin, shape.size())) : "";
    }
    int32_t number() {
        if (match_ != Match::WHOLE) {
            return 0;
        }
        int32_t value = 0;
        const string_view all = rest();
        const auto [end, error] = std::from_chars(all.data(), all.data() + all.size(), value);
        const auto length = static_cast<size_t>(end - all.data());
        if (length == all.size() || all == "-") {
            match_ = Match::CUT;
        } else if (error != std::errc()) {
            match_ = Match::NONE;
        }
        position_ += length;
        return match_ == Match::WHOLE ? value : 0;
    }

  private:
    static bool fits(char byte, char shape) {
        return shape == '?' || (shape == '0' ? byte >= '0' && byte <= '9' : byte == shape);
    }

    string_view bytes_;
    size_t position_ = 0;
    Match match_ = Match::WHOLE;
};

// The five lines of a head, and what they say.
struct Head {
    Match match = Match::NONE;
    size_t size = 0;
    Report report;
};

// Reads the lines from the error number on, behind a device's name.
Head read_number_and_switch(Scanner scanner, Report report) {
    scanner.text("\n");
    scanner.text(HEAD_ERROR_NO);
    report.error_no = scanner.number();
    report.has_error_no = scanner.match() == Match::WHOLE;
    scanner.text("\n");
    scanner.text(HEAD_TEST_SWITCH);
    if (scanner.match() != Match::WHOLE) {
        return {scanner.match(), scanner.position(), report};
    }
    Head best;
    // The switch comes from outside and may hold a line's end: the right one has more of the head behind it.
    for (size_t length = 0; length <= SWITCH_MAX; ++length) {
        Scanner line = scanner;
        report.test_switch = line.text(std::string(length, '?'));
        line.text("\n");
        const bool is_right = line.match() == Match::WHOLE &&
                              (starts_with(line.rest(), CONTENT) || starts_with(line.rest(), PROCESSES));
        if (is_right || line.match() > best.match) {
            best = {line.match(), line.position(), report};
        }
        if (is_right) {
            break;
        }
    }
    return best;
}

// Reads the five lines at the beginning of the bytes, which is a title.
Head read_head(string_view bytes) {
    Scanner scanner(bytes);
    Report report;
    report.has_error_no = false;
    scanner.text(TITLE);
    scanner.text(HEAD_DATE);
    report.date = scanner.text("0000-00-00");
    scanner.text("\n");
    scanner.text(HEAD_TIME);
    report.time = scanner.text("00:00:00");
    scanner.text("\n");
    scanner.text(HEAD_DEVICE);
    if (scanner.match() != Match::WHOLE) {
        return {scanner.match(), bytes.size(), report};
    }
    // The name may hold anything, also a line's end.
    Head best;
    for (size_t length = 0; length <= DEVICE_MAX && best.match != Match::WHOLE; ++length) {
        Scanner line = scanner;
        report.device = line.text(std::string(length, '?'));
        if (line.match() != Match::WHOLE) {
            break;
        }
        const Head head = read_number_and_switch(line, report);
        if (head.match > best.match) {
            best = head;
        }
    }
    if (best.match == Match::CUT) {
        best.size = bytes.size();
    }
    return best;
}

// Finds the first head, and where it begins; without one, the size of the bytes.
size_t find_head(string_view bytes, Head* head) {
    for (size_t at = bytes.find(TITLE); at != string_view::npos; at = bytes.find(TITLE, at + 1)) {
        *head = read_head(bytes.substr(at));
        if (head->match != Match::NONE) {
            return at;
        }
    }
    return bytes.size();
}

// Where the line before the content begins in what stands behind the five lines; without such a line, npos.
size_t find_content_line(string_view body) {
    if (starts_with(body, CONTENT)) {
        return 0;
    }
    if (!starts_with(body, PROCESSES)) {
        return string_view::npos;
    }
    // After a process list that was cut off, it does not begin a line.
    const size_t line_end = body.find(std::string("\n") + HEAD_CONTENT);
    return line_end == string_view::npos ? body.find(CONTENT) : line_end + 1;
}

// Makes the report of its head and of what stands between that and the next one.
Report make_report(Head head, string_view bytes) {
    Report report = std::move(head.report);
    const string_view body = bytes.substr(head.size);
    const size_t content_line = find_content_line(body);
    report.cut = content_line == string_view::npos;
    size_t processes_end = content_line;
    size_t content = content_line + CONTENT.size();
    if (report.cut) {
        // What is neither a process list nor a piece of the next line is content, whatever happened to the
        // head.
        const bool is_head =
            starts_with(body, PROCESSES) || starts_with(PROCESSES, body) || starts_with(CONTENT, body);
        content = processes_end = is_head ? body.size() : 0;
    }
    if (starts_with(body, PROCESSES)) {
        report.processes = body.substr(PROCESSES.size(), processes_end - PROCESSES.size());
    }
    report.head = bytes.substr(0, head.size + content);
    report.content = body.substr(content);
    report.bytes = report.content.size();
    return report;
}

}  // namespace

Record read_record(string_view bytes, size_t reports_max) {
    Record record;
    Head head;
    size_t at = find_head(bytes, &head);
    record.bytes_before = at;
    while (at < bytes.size() && record.reports.size() < reports_max) {
        const string_view rest = bytes.substr(at);
        Head next;
        const size_t size = head.size + find_head(rest.substr(head.size), &next);
        record.reports.push_back(make_report(std::move(head), rest.substr(0, size)));
        head = std::move(next);
        at += size;
    }
    record.bytes_after = bytes.size() - at;
    return record;
}

}  // namespace tools
