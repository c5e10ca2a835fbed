// The rows of dmd-report --summary.
#include "tools/report_summary.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <functional>
#include <iterator>

namespace tools {
namespace {

constexpr int BLOCKS_MOST = 12;  // of a bar
constexpr size_t YEAR_SIZE = 5;  // of a date's "YYYY-"
constexpr size_t DATE_SIZE = 10;

bool is_word(char character) {
    return isalnum(static_cast<unsigned char>(character)) || character == '_';
}

// The number of a day, YYYY-MM-DD, from 1970-01-01 on.
int day_number(const std::string& date) {
    tm day = {};
    strptime(date.c_str(), "%Y-%m-%d", &day);
    return static_cast<int>(timegm(&day) / 86400);
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
    ++group.days[report.date];
    group.first = group.first.empty() ? when : std::min(group.first, when);
    group.last = std::max(group.last, when);
    first_day_ = first_day_.empty() ? report.date : std::min(first_day_, report.date);
    last_day_ = std::max(last_day_, report.date);
}

int ReportSummary::days_a_block() const {
    const int days = first_day_.empty() ? 0 : day_number(last_day_) - day_number(first_day_) + 1;
    return std::max(1, (days + BLOCKS_MOST - 1) / BLOCKS_MOST);
}

// On a terminal blocks as high as the reports of their days are many; elsewhere the count of each day.
std::string ReportSummary::bar_of(const Counts& days, bool is_terminal) const {
    static const char* const blocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr size_t HIGHEST = std::size(blocks) - 1;
    if (first_day_.empty()) {
        return "";
    }
    const int first = day_number(first_day_);
    const int width = is_terminal ? days_a_block() : 1;
    std::vector<size_t> counts(static_cast<size_t>((day_number(last_day_) - first) / width + 1));
    for (const auto& [day, count] : days) {
        counts[static_cast<size_t>((day_number(day) - first) / width)] += count;
    }
    const size_t most = std::max<size_t>(1, *std::max_element(counts.begin(), counts.end()));
    std::string bar;
    for (const size_t count : counts) {
        bar += is_terminal ? blocks[(count * HIGHEST + most - 1) / most]
                           : (bar.empty() ? "" : ",") + std::to_string(count);
    }
    return bar;
}

// On a terminal the day, without the year where all are of one.
std::string ReportSummary::time_of(const std::string& when, bool is_terminal) const {
    if (!is_terminal || when.empty()) {
        return when;
    }
    const bool is_one_year = first_day_.substr(0, YEAR_SIZE) == last_day_.substr(0, YEAR_SIZE);
    const size_t begin = is_one_year ? YEAR_SIZE : 0;
    return when.substr(begin, DATE_SIZE - begin);
}

Table ReportSummary::table(const Terminal& terminal) const {
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
    if (first_day_.empty() || by_ == SummaryBy::TEXT || by_ == SummaryBy::DAY) {
        return "";
    }
    const int width = days_a_block();
    return "DAYS: " + first_day_ + " to " + last_day_ + ", a block for each " +
           (width == 1 ? "day" : std::to_string(width) + " days");
}

}  // namespace tools
