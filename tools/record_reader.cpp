// The grammar of a record file, as output/bug_head.cpp writes it.
#include "tools/record_reader.h"

#include <algorithm>
#include <charconv>

#include "output/error_info.h"

namespace tools {
namespace {

using std::string_view;

constexpr string_view TITLE = "\n========Device Bugreport========\n";
constexpr string_view CONTENT = "[Content]:\n";
constexpr string_view PROCESSES = "[Temperature]:null\n[Process]:\n";

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

    void literal(string_view text) {
        take(text.size(), [text](size_t i, char c) { return c == text[i]; });
    }
    // A text in which '0' stands for any digit.
    std::string digits(string_view shape) {
        const size_t begin = position_;
        take(shape.size(),
             [shape](size_t i, char c) { return shape[i] == '0' ? c >= '0' && c <= '9' : c == shape[i]; });
        return match_ == Match::WHOLE ? std::string(bytes_.substr(begin, shape.size())) : "";
    }
    std::string text(size_t length) {
        const size_t begin = position_;
        take(length, [](size_t, char) { return true; });
        return match_ == Match::WHOLE ? std::string(bytes_.substr(begin, length)) : "";
    }
    int32_t number() {
        int32_t value = 0;
        const string_view all = rest();
        const auto [end, error] = std::from_chars(all.data(), all.data() + all.size(), value);
        const auto length = static_cast<size_t>(end - all.data());
        if (match_ != Match::WHOLE) {
            return 0;
        }
        if (length == all.size() || all == "-") {
            match_ = Match::CUT;
        } else if (error != std::errc()) {
            match_ = Match::NONE;
        }
        position_ += length;
        return match_ == Match::WHOLE ? value : 0;
    }

  private:
    template <typename Fits>
    void take(size_t length, Fits fits) {
        for (size_t i = 0; i < length && match_ == Match::WHOLE; ++i) {
            if (position_ == bytes_.size()) {
                match_ = Match::CUT;
            } else if (!fits(i, bytes_[position_])) {
                match_ = Match::NONE;
            } else {
                ++position_;
            }
        }
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

// What stands behind the five lines.
bool is_behind_head(string_view rest) {
    return starts_with(rest, CONTENT) || starts_with(rest, PROCESSES);
}

// Reads the lines from the error number on, behind a device's name.
Head read_number_and_switch(Scanner scanner, Report report) {
    scanner.literal("\n[Error no]:");
    report.error_no = scanner.number();
    report.has_error_no = scanner.match() == Match::WHOLE;
    scanner.literal("\n[Runing_test_switch]:");
    Head best = {scanner.match(), scanner.position(), report};
    if (best.match != Match::WHOLE) {
        return best;
    }
    best.match = Match::NONE;
    // The switch comes from outside and may hold a line's end: the right one has more of the head behind it.
    for (size_t length = 0; length <= SWITCH_MAX; ++length) {
        Scanner line = scanner;
        report.test_switch = line.text(length);
        line.literal("\n");
        const bool is_right = line.match() == Match::WHOLE && is_behind_head(line.rest());
        if (is_right || line.match() > best.match) {
            best = {line.match(), line.position(), report};
        }
        if (is_right) {
            break;
        }
    }
    return best;
}

// Reads the five lines at the beginning of the bytes.
Head read_head(string_view bytes) {
    Scanner scanner(bytes);
    Report report;
    report.has_error_no = false;
    scanner.literal(TITLE);
    scanner.literal("[Date]:");
    report.date = scanner.digits("0000-00-00");
    scanner.literal("\n[Time]:");
    report.time = scanner.digits("00:00:00");
    scanner.literal("\n[Device]:");
    if (scanner.match() != Match::WHOLE) {
        // Of the title itself a part is not enough: it could as well be content.
        const bool is_cut = scanner.match() == Match::CUT && scanner.position() >= TITLE.size();
        return {is_cut ? Match::CUT : Match::NONE, bytes.size(), report};
    }
    // The name may hold anything, also a line's end.
    Head best;
    for (size_t length = 0; length <= DEVICE_MAX && best.match != Match::WHOLE; ++length) {
        Scanner line = scanner;
        report.device = line.text(length);
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

// Where the content begins in what stands behind the five lines; without such a place, npos.
size_t find_content(string_view body) {
    if (starts_with(body, CONTENT)) {
        return CONTENT.size();
    }
    if (!starts_with(body, PROCESSES)) {
        return string_view::npos;
    }
    // After a process list that was cut off, the line does not begin a line.
    size_t at = body.find("\n[Content]:\n");
    at = at == string_view::npos ? body.find(CONTENT) : at + 1;
    return at == string_view::npos ? at : at + CONTENT.size();
}

// Makes the report of its head and of what stands between that and the next one.
RecordReport make_report(Head head, string_view bytes) {
    RecordReport made = {std::move(head.report), ""};
    Report& report = made.report;
    const string_view body = bytes.substr(head.size);
    size_t content = find_content(body);
    report.cut = content == string_view::npos;
    size_t processes_end = content - CONTENT.size();
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
    made.head = bytes.substr(0, head.size + content);
    report.content = body.substr(content);
    report.bytes = report.content.size();
    return made;
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

bool is_beginning_of(const RecordReport& part, const RecordReport& whole) {
    const string_view pieces[] = {whole.head, whole.report.content, TITLE};
    const string_view wanted[] = {part.head, part.report.content};
    // Compares two texts that are each in pieces.
    size_t piece = 0;
    string_view left = pieces[0];
    for (string_view text : wanted) {
        while (!text.empty()) {
            while (left.empty()) {
                if (++piece == std::size(pieces)) {
                    return false;
                }
                left = pieces[piece];
            }
            const size_t length = std::min(text.size(), left.size());
            if (text.substr(0, length) != left.substr(0, length)) {
                return false;
            }
            text.remove_prefix(length);
            left.remove_prefix(length);
        }
    }
    return true;
}

}  // namespace tools
