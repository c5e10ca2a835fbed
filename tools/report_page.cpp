// The page's document: columns of numbers, and tables of the texts and places that these numbers stand for.
// So a text that many reports have is in the page once.
#include "tools/report_page.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <functional>
#include <string_view>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "desk/command_line.h"
#include "tools/phone_reports.h"
#include "tools/report_json.h"
#include "tools/terminal.h"

namespace tools {

// The page without its document, which CMakeLists.txt puts together of the files report_*.html, .css and .js.
extern const char REPORT_PAGE[];

namespace {

// How much of a kind is in a page: of each report at most so much and, over all reports, about so much.
struct Budget {
    size_t each;
    size_t all;
};
constexpr Budget CONTENT_BYTES{64 * 1024, 16 * 1024 * 1024};
constexpr Budget PROCESSES_BYTES{64 * 1024, 8 * 1024 * 1024};
constexpr Budget PLACES{1000, 500 * 1000};

using Reports = std::vector<const Report*>;

// The largest limit for each report with which all of them keep to the budget. What is smaller than the limit
// leaves its room to the others.
size_t limit_of(const Reports& reports, const Budget& budget,
                const std::function<size_t(const Report&)>& size_of) {
    std::vector<size_t> sizes;
    sizes.reserve(reports.size());
    for (const Report* const report : reports) {
        sizes.push_back(std::min(size_of(*report), budget.each));
    }
    std::sort(sizes.begin(), sizes.end());
    size_t room = budget.all;
    for (size_t i = 0; i < sizes.size(); ++i) {
        const size_t share = room / (sizes.size() - i);
        if (sizes[i] > share) {
            return share;
        }
        room -= sizes[i];
    }
    return budget.each;
}

std::string quoted(const std::string& text) {
    std::string quoted;
    for (const char character : text_of(text)) {
        // It stands in a script element, which a "<" could end.
        if (character == '<') {
            quoted += "\\u003c";
        } else {
            quoted += character;
        }
    }
    return quoted;
}

std::string list_of(const std::vector<std::string>& values) {
    std::string list;
    for (const std::string& value : values) {
        list += (list.empty() ? "" : ",") + value;
    }
    return "[" + list + "]";
}

// Values, each of which is written once. What refers to one has its number.
class Distinct {
  public:
    std::string number_of(const std::string& value) {
        const auto [entry, is_new] = numbers_.try_emplace(value, values_.size());
        if (is_new) {
            values_.push_back(&entry->first);
        }
        return std::to_string(entry->second);
    }

    void append_to(std::string& document) const {
        const char* separator = "[";
        for (const std::string* const value : values_) {
            document += separator + *value;
            separator = ",\n";
        }
        document += values_.empty() ? "[]" : "]";
    }

  private:
    std::unordered_map<std::string, size_t> numbers_;  // its keys stay where they are
    std::vector<const std::string*> values_;
};

// The text's first bytes, without a piece of a character at the end.
std::string beginning_of(const std::string& text, size_t size) {
    constexpr size_t CHARACTER_MAX = 4;
    if (text.size() <= size) {
        return text;
    }
    size_t end = size;
    while (end > 0 && size - end < CHARACTER_MAX && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) {
        --end;
    }
    return text.substr(0, end);
}

// The beginning of a dump, if that is text.
std::string dump_text(const Report& dump, size_t size) {
    std::string text;
    if (is_archive(dump)) {
        return text;
    }
    const auto take = [&](std::string_view piece) {
        text += piece;
        return text.size() <= size;
    };
    try {
        read_dump(dump, take);
    } catch (const Unreadable&) {
        return "";  // was readable a moment ago
    }
    text = beginning_of(text, size);
    return is_utf8(text) ? text : "";
}

std::string present_time() {
    const time_t now = time(nullptr);
    tm local;
    char text[sizeof "2026-11-25 10:11 and the name of a zone"] = "";
    strftime(text, sizeof text, "%Y-%m-%d %H:%M %Z", localtime_r(&now, &local));
    return text;
}

std::string flag(bool value) {
    return value ? "1" : "0";
}

class PageDocument {
  public:
    explicit PageDocument(const Reports& reports);

    std::string write(const std::vector<Problem>& problems, const PageFacts& facts);
    std::string list_of_texts(const std::vector<std::string>& values);

  private:
    std::string columns();
    std::string content_of(const Report& report);
    std::string attachments_of(const Report& report);
    std::string places_of(const Report& report);
    std::string text(const std::string& value) { return texts_.number_of(quoted(value)); }
    std::string text_or_null(const std::string& value) { return value.empty() ? "null" : text(value); }

    const Reports& reports_;
    size_t content_max_;
    size_t processes_max_;
    size_t places_max_;
    Distinct texts_;
    Distinct places_;
};

PageDocument::PageDocument(const Reports& reports) : reports_(reports) {
    content_max_ = limit_of(reports, CONTENT_BYTES, [](const Report& report) {
        return report.kind == ReportKind::DUMP && is_archive(report) ? 0 : report.bytes;
    });
    processes_max_ =
        limit_of(reports, PROCESSES_BYTES, [](const Report& report) { return report.processes.size(); });
    places_max_ = limit_of(reports, PLACES, [](const Report& report) { return report.places.size(); });
}

std::string PageDocument::content_of(const Report& report) {
    return report.kind == ReportKind::DUMP ? text_or_null(dump_text(report, content_max_))
                                           : text(beginning_of(report.content, content_max_));
}

std::string PageDocument::attachments_of(const Report& report) {
    std::vector<std::string> attachments;
    for (const auto& [name, bytes] : report.attachments) {
        attachments.push_back(list_of({text(name), std::to_string(bytes)}));
    }
    return list_of(attachments);
}

std::string PageDocument::places_of(const Report& report) {
    std::vector<std::string> numbers;
    for (size_t i = 0; i < std::min(report.places.size(), places_max_); ++i) {
        const auto& [file, member, damaged] = report.places[i];
        numbers.push_back(places_.number_of(list_of({text(file), text_or_null(member), flag(damaged)})));
    }
    return list_of(numbers);
}

std::string PageDocument::columns() {
    struct Column {
        const char* name;
        std::function<std::string(const Report&)> value_of;
    };
    const Column columns[] = {
        {"number", [](const Report& report) { return std::to_string(report.number); }},
        {"phone", [&](const Report& report) { return text(report.phone); }},
        {"kind",
         [&](const Report& report) { return text(report.kind == ReportKind::DUMP ? "dump" : "report"); }},
        {"date", [&](const Report& report) { return text_or_null(report.date); }},
        {"time", [&](const Report& report) { return text_or_null(report.time); }},
        {"device", [&](const Report& report) { return has_device(report) ? text(report.device) : "null"; }},
        {"error",
         [](const Report& report) { return report.has_error_no ? std::to_string(report.error_no) : "null"; }},
        {"name", [&](const Report& report) { return text_or_null(report.error_name); }},
        {"test_switch", [&](const Report& report) { return text_or_null(report.test_switch); }},
        {"bytes", [](const Report& report) { return std::to_string(report.bytes); }},
        {"cut", [](const Report& report) { return flag(report.cut); }},
        {"damaged", [](const Report& report) { return flag(report.damaged); }},
        {"content", [&](const Report& report) { return content_of(report); }},
        {"processes",
         [&](const Report& report) { return text_or_null(beginning_of(report.processes, processes_max_)); }},
        {"processes_bytes", [](const Report& report) { return std::to_string(report.processes.size()); }},
        {"archive", [&](const Report& report) { return text_or_null(report.archive); }},
        {"attachments", [&](const Report& report) { return attachments_of(report); }},
        {"places", [&](const Report& report) { return places_of(report); }},
        {"places_count", [](const Report& report) { return std::to_string(report.places.size()); }},
    };
    std::string written;
    for (const auto& [name, value_of] : columns) {
        written += (written.empty() ? "{" : ",\n") + quoted(name) + ":[";
        for (const Report* const report : reports_) {
            written += (written.back() == '[' ? "" : ",") + value_of(*report);
        }
        written += "]";
    }
    return written + "}";
}

std::string PageDocument::list_of_texts(const std::vector<std::string>& values) {
    std::vector<std::string> numbers;
    numbers.reserve(values.size());
    for (const std::string& value : values) {
        numbers.push_back(text(value));
    }
    return list_of(numbers);
}

// The tables come last, when all that refers to them is written.
std::string PageDocument::write(const std::vector<Problem>& problems, const PageFacts& facts) {
    std::vector<std::string> problem_list;
    problem_list.reserve(problems.size());
    for (const Problem& problem : problems) {
        problem_list.push_back(
            list_of({text_or_null(problem.phone), text(problem.file), text(problem.text)}));
    }
    std::string document =
        "{\"made\":" + quoted(present_time()) + ",\"version\":" + quoted(desk::VERSION) +
        ",\"content_max\":" + std::to_string(content_max_) +
        ",\"processes_max\":" + std::to_string(processes_max_) + ",\n\"problems\":" + list_of(problem_list) +
        ",\n\"paths\":" + list_of_texts(facts.paths) + ",\n\"phones\":" + list_of_texts(facts.phones) +
        ",\n\"filter\":" + quoted(facts.filter) + ",\n\"columns\":" + columns();
    document += ",\n\"places\":";
    places_.append_to(document);
    document += ",\n\"texts\":";
    texts_.append_to(document);
    document += "}";
    return document;
}

}  // namespace

std::string make_report_page(const Reports& reports, const std::vector<Problem>& problems,
                             const PageFacts& facts) {
    constexpr std::string_view PLACE = "/*document*/";
    const std::string_view page = REPORT_PAGE;
    const size_t place = page.find(PLACE);
    std::string filled(page.substr(0, place));
    filled += PageDocument(reports).write(problems, facts);
    filled += page.substr(place + PLACE.size());
    return filled;
}

}  // namespace tools
