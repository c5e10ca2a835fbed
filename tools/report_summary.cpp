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
        case BY_PHONE:
            return {report.phone};
        case BY_DAY:
            return {report.date.empty() ? "(no date)" : report.date};
        case BY_TEXT:
            return {device_of(report), error_text(report), mask_numbers(first_line(report))};
        default:
            return {device_of(report), error_text(report)};
    }
}

void ReportSummary::add(const Report& report) {
    Group& group = groups_[key_of(report)];
    ++group.reports;
    ++group.phones[report.phone];
    ++group.errors[device_of(report) + " " + error_text(report)];
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
// days that half a year without a report parts, the bars show those with the most reports.
void ReportSummary::find_range() {
    constexpr int HALF_A_YEAR = 183;
    int first = 0, previous = 0;
    size_t reports = 0, most = 0;
    for (const auto& [day, count] : days_) {
        if (reports == 0 || day - previous > HALF_A_YEAR) {
            first = day;
            reports = 0;
        }
        previous = day;
        reports += count;
        if (reports > most) {
            most = reports;
            first_day_ = first;
            last_day_ = day;
        }
    }
}

int ReportSummary::days_a_block() const {
    return (last_day_ - first_day_ + BLOCKS_MOST) / BLOCKS_MOST;
}

// How many more reports the second half of the bars' days has than the first.
long ReportSummary::rise_of(const Days& days) const {
    long rise = 0;
    for (const auto& [day, count] : days) {
        const int from_middle = 2 * day - first_day_ - last_day_;
        if (first_day_ <= day && day <= last_day_ && from_middle != 0) {
            rise += from_middle > 0 ? static_cast<long>(count) : -static_cast<long>(count);
        }
    }
    return rise;
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
    const bool is_terminal = terminal.is_terminal;
    const auto count = [](size_t number) { return std::to_string(number); };
    const struct {
        Column column;
        unsigned by;  // the summaries that have it
        std::function<std::string(const Key&, const Group&)> cell;
    } all[] = {
        {{"PHONE", Holds::TEXT, Fit::CUT}, BY_PHONE, [](const Key& key, const Group&) { return key[0]; }},
        {{"DAY"}, BY_DAY, [](const Key& key, const Group&) { return key[0]; }},
        {{"DEVICE", Holds::TEXT, Fit::CUT},
         BY_ERROR | BY_TEXT,
         [](const Key& key, const Group&) { return key[0]; }},
        {{"ERROR", Holds::NUMBER}, BY_ERROR | BY_TEXT, [](const Key& key, const Group&) { return key[1]; }},
        {{"REPORTS", Holds::COUNT},
         BY_ERROR | BY_PHONE | BY_DAY | BY_TEXT,
         [&](const Key&, const Group& group) { return count(group.reports); }},
        {{"PHONES", Holds::COUNT},
         BY_ERROR | BY_DAY | BY_TEXT,
         [&](const Key&, const Group& group) { return count(group.phones.size()); }},
        {{"ERRORS", Holds::COUNT},
         BY_PHONE | BY_DAY,
         [&](const Key&, const Group& group) { return count(group.errors.size()); }},
        {{"FIRST"},
         BY_ERROR | BY_PHONE | BY_TEXT,
         [&](const Key&, const Group& group) { return time_of(group.first, is_terminal); }},
        {{"LAST"},
         BY_ERROR | BY_PHONE | BY_TEXT,
         [&](const Key&, const Group& group) { return time_of(group.last, is_terminal); }},
        {{"WORST", Holds::TEXT, Fit::CUT},
         BY_ERROR,
         [](const Key&, const Group& group) { return most_of(group.phones); }},
        {{"WORST", Holds::TEXT, Fit::CUT},
         BY_PHONE | BY_DAY,
         [](const Key&, const Group& group) { return most_of(group.errors); }},
        {{"RISE", Holds::COUNT, Fit::DROPPED},
         BY_ERROR | BY_PHONE,
         [&](const Key&, const Group& group) { return std::to_string(rise_of(group.days)); }},
        {{"DAYS"},
         BY_ERROR | BY_PHONE,
         [&](const Key&, const Group& group) { return bar_of(group.days, is_terminal); }},
        {{"NAME", Holds::TEXT, Fit::CUT},
         has_names_ ? BY_ERROR | BY_TEXT : 0,
         [](const Key&, const Group& group) { return group.error_name; }},
        {{"TEXT", Holds::TEXT, Fit::CUT}, BY_TEXT, [](const Key& key, const Group&) { return key[2]; }},
    };
    Table table;
    table.rows.resize(groups_.size());
    for (const auto& [column, by, cell] : all) {
        if ((by & by_) == 0) {
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
    if (days_.empty() || by_ == BY_TEXT || by_ == BY_DAY) {
        return "";
    }
    const int width = days_a_block();
    return "DAYS: " + date_of(first_day_) + " to " + date_of(last_day_) + ", a block for each " +
           (width == 1 ? "day" : std::to_string(width) + " days");
}

}  // namespace tools
