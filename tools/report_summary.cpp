// The rows of dmd-report --summary.
#include "tools/report_summary.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <functional>
#include <iterator>
#include <optional>

namespace tools {
namespace {

constexpr int BLOCKS_MOST = 12;  // of a bar
constexpr size_t YEAR_SIZE = 5;  // of a date's "YYYY-"
constexpr size_t DATE_SIZE = 10;

bool is_word(char character) {
    return isalnum(static_cast<unsigned char>(character)) || character == '_';
}

std::string date_of(int day) {
    const time_t second = time_t{day} * 86400;
    tm parts = {};
    char date[16];
    strftime(date, sizeof date, "%Y-%m-%d", gmtime_r(&second, &parts));
    return date;
}

// The number of the day since 1970-01-01. Nothing for a day that there is not.
std::optional<int> day_of(const std::string& date) {
    tm parts = {};
    strptime(date.c_str(), "%Y-%m-%d", &parts);
    const int day = static_cast<int>(timegm(&parts) / 86400);
    return date_of(day) == date ? std::optional(day) : std::nullopt;
}

// What has the most, and how much that is.
std::string most_of(const std::map<std::string, size_t>& counts) {
    const auto most = std::max_element(counts.begin(), counts.end(), [](const auto& left, const auto& right) {
        return left.second < right.second;
    });
    return most == counts.end() ? "" : most->first + " (" + std::to_string(most->second) + ")";
}

std::string error_of(const Report& report) {
    return report.has_error_no ? std::to_string(report.error_no) : "";
}

std::string device_of(const Report& report) {
    return report.kind == ReportKind::DUMP ? "(dump)" : report.device;
}

}  // namespace

std::string first_line(const Report& report) {
    const std::string& content = report.content;
    const size_t begin = content.find_first_not_of(" \t\r\n");
    return begin == std::string::npos ? ""
                                      : content.substr(begin, content.find_first_of("\r\n", begin) - begin);
}

std::string mask_numbers(const std::string& text) {
    std::string masked;
    for (size_t at = 0; at < text.size();) {
        const bool is_number =
            isdigit(static_cast<unsigned char>(text[at])) && (at == 0 || !is_word(text[at - 1]));
        if (!is_number) {
            masked += text[at];
            ++at;
            continue;
        }
        masked += '#';
        const size_t hex_end = text.find_first_not_of("0123456789abcdefABCDEF", at + 2);
        const bool is_hex = text.compare(at, 2, "0x") == 0 && std::min(hex_end, text.size()) > at + 2;
        at = std::min(is_hex ? hex_end : text.find_first_not_of("0123456789", at), text.size());
    }
    return masked;
}

ReportSummary::Key ReportSummary::key_of(const Report& report) const {
    switch (by_) {
        case SummaryBy::PHONE:
            return {report.phone};
        case SummaryBy::DAY:
            return {report.date.empty() ? "(no date)" : report.date};
        case SummaryBy::TEXT:
            return {device_of(report), error_of(report), mask_numbers(first_line(report))};
        default:
            return {device_of(report), error_of(report)};
    }
}

void ReportSummary::add(const Report& report) {
    Group& group = groups_[key_of(report)];
    ++group.reports;
    ++group.phones[report.phone];
    ++group.errors[device_of(report) + " " + error_of(report)];
    ++phones_[report.phone];
    group.error_name = report.error_name;
    has_names_ = has_names_ || !report.error_name.empty();
    if (report.date.empty()) {
        return;
    }
    const std::string when = report.date + " " + report.time;
    const std::string year = when.substr(0, YEAR_SIZE);
    is_one_year_ = is_one_year_ && (year_.empty() || year == year_);
    year_ = year;
    group.first = group.first.empty() ? when : std::min(group.first, when);
    group.last = std::max(group.last, when);
    if (const std::optional<int> day = day_of(report.date)) {
        ++group.days[*day];
        ++days_[*day];
    }
}

// The bars show all days. But a phone whose clock is years off does not squeeze all others into one block: of
// more than a year, the first and the last hundredth of the reports do not count.
void ReportSummary::find_range() {
    if (days_.empty()) {
        return;
    }
    constexpr int YEAR = 366;
    size_t reports = 0;
    for (const auto& [day, count] : days_) {
        reports += count;
    }
    auto first = days_.begin();
    auto last = std::prev(days_.end());
    if (last->first - first->first > YEAR) {
        for (size_t left_out = first->second; left_out <= reports / 100; left_out += first->second) {
            ++first;
        }
        for (size_t left_out = last->second; left_out <= reports / 100; left_out += last->second) {
            --last;
        }
    }
    first_day_ = first->first;
    last_day_ = last->first;
}

int ReportSummary::days_a_block() const {
    return (last_day_ - first_day_ + BLOCKS_MOST) / BLOCKS_MOST;
}

// On a terminal blocks as high as the reports of their days are many; elsewhere the days with their counts.
std::string ReportSummary::bar_of(const Days& days, bool is_terminal) const {
    static const char* const blocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr size_t HIGHEST = std::size(blocks) - 1;
    std::string bar;
    if (!is_terminal) {
        for (const auto& [day, count] : days) {
            bar += (bar.empty() ? "" : ",") + date_of(day) + ":" + std::to_string(count);
        }
        return bar;
    }
    const int width = days_a_block();
    std::vector<size_t> counts(static_cast<size_t>((last_day_ - first_day_) / width + 1));
    for (const auto& [day, count] : days) {
        if (first_day_ <= day && day <= last_day_) {
            counts[static_cast<size_t>((day - first_day_) / width)] += count;
        }
    }
    const size_t most = std::max<size_t>(1, *std::max_element(counts.begin(), counts.end()));
    for (const size_t count : counts) {
        bar += blocks[(count * HIGHEST + most - 1) / most];
    }
    return bar;
}

// On a terminal the day, without the year where all are of one.
std::string ReportSummary::time_of(const std::string& when, bool is_terminal) const {
    if (!is_terminal || when.empty()) {
        return when;
    }
    const size_t begin = is_one_year_ ? YEAR_SIZE : 0;
    return when.substr(begin, DATE_SIZE - begin);
}

Table ReportSummary::table(const Terminal& terminal) {
    find_range();
    constexpr int ERROR = static_cast<int>(SummaryBy::ERROR), PHONE = static_cast<int>(SummaryBy::PHONE),
                  DAY = static_cast<int>(SummaryBy::DAY), TEXT = static_cast<int>(SummaryBy::TEXT);
    const bool is_terminal = terminal.is_terminal;
    const auto count = [](size_t number) { return std::to_string(number); };
    const struct {
        Column column;
        int by;  // the summaries that have it
        std::function<std::string(const Key&, const Group&)> cell;
    } all[] = {
        {{"PHONE", Holds::TEXT, Fit::CUT}, PHONE, [](const Key& key, const Group&) { return key[0]; }},
        {{"DAY"}, DAY, [](const Key& key, const Group&) { return key[0]; }},
        {{"DEVICE", Holds::TEXT, Fit::CUT},
         ERROR | TEXT,
         [](const Key& key, const Group&) { return key[0]; }},
        {{"ERROR", Holds::NUMBER}, ERROR | TEXT, [](const Key& key, const Group&) { return key[1]; }},
        {{"REPORTS", Holds::COUNT},
         ERROR | PHONE | DAY | TEXT,
         [&](const Key&, const Group& group) { return count(group.reports); }},
        {{"PHONES", Holds::COUNT},
         ERROR | DAY | TEXT,
         [&](const Key&, const Group& group) { return count(group.phones.size()); }},
        {{"ERRORS", Holds::COUNT},
         PHONE | DAY,
         [&](const Key&, const Group& group) { return count(group.errors.size()); }},
        {{"FIRST"},
         ERROR | PHONE | TEXT,
         [&](const Key&, const Group& group) { return time_of(group.first, is_terminal); }},
        {{"LAST"},
         ERROR | PHONE | TEXT,
         [&](const Key&, const Group& group) { return time_of(group.last, is_terminal); }},
        {{"WORST", Holds::TEXT, Fit::CUT},
         ERROR,
         [](const Key&, const Group& group) { return most_of(group.phones); }},
        {{"WORST", Holds::TEXT, Fit::CUT},
         PHONE | DAY,
         [](const Key&, const Group& group) { return most_of(group.errors); }},
        {{"DAYS"},
         ERROR | PHONE,
         [&](const Key&, const Group& group) { return bar_of(group.days, is_terminal); }},
        {{"NAME", Holds::TEXT, Fit::CUT},
         has_names_ ? ERROR | TEXT : 0,
         [](const Key&, const Group& group) { return group.error_name; }},
        {{"TEXT", Holds::TEXT, Fit::CUT}, TEXT, [](const Key& key, const Group&) { return key[2]; }},
    };
    Table table;
    table.rows.resize(groups_.size());
    for (const auto& [column, by, cell] : all) {
        if ((by & static_cast<int>(by_)) == 0) {
            continue;
        }
        table.columns.push_back(column);
        size_t row = 0;
        for (const auto& [key, group] : groups_) {
            table.rows[row++].cells.push_back(cell(key, group));
        }
    }
    return table;
}

std::string ReportSummary::legend() const {
    if (days_.empty() || by_ == SummaryBy::TEXT || by_ == SummaryBy::DAY) {
        return "";
    }
    const int width = days_a_block();
    return "DAYS: " + date_of(first_day_) + " to " + date_of(last_day_) + ", a block for each " +
           (width == 1 ? "day" : std::to_string(width) + " days");
}

}  // namespace tools
