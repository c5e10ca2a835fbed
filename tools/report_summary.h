// What breaks most, on how many phones, on which, since when, and whether it gets worse.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tools/report.h"
#include "tools/terminal.h"

namespace tools {

// What a summary has a row for.
enum SummaryBy : unsigned {
    BY_ERROR = 1,  // each device and error number
    BY_PHONE = 2,
    BY_DAY = 4,
    BY_TEXT = 8,  // each device, error number and text, whose numbers are masked
};

// The content's first line that is not blank.
std::string first_line(const Report& report);

// The text with "#" for each number in it that does not follow a letter, a digit or an underscore.
std::string mask_numbers(const std::string& text);

class ReportSummary {
  public:
    explicit ReportSummary(SummaryBy by) : by_(by) {}

    void add(const Report& report);
    size_t phones() const { return phones_.size(); }

    // The columns, and a row for each group. On a terminal times are days, and the reports of each day a bar.
    Table table(const Terminal& terminal);
    // What the bars of the table show; empty when there are none.
    std::string legend() const;

  private:
    using Counts = std::map<std::string, size_t>;
    using Days = std::map<int, size_t>;  // by the number of the day since 1970-01-01
    struct Group {
        size_t reports = 0;
        Counts phones;
        Counts errors;  // device and number
        Days days;
        std::string error_name;
        std::string first;
        std::string last;
    };

    using Key = std::vector<std::string>;

    Key key_of(const Report& report) const;
    std::string time_of(const std::string& when, bool is_terminal) const;
    std::string bar_of(const Days& days, bool is_terminal) const;
    void find_range();
    int days_a_block() const;
    long rise_of(const Days& days) const;

    SummaryBy by_;
    std::map<Key, Group> groups_;
    Counts phones_;
    Days days_;
    bool has_names_ = false;
    std::string year_;  // of the last report
    bool is_one_year_ = true;
    int first_day_ = 0;  // of the bars
    int last_day_ = 0;
};

}  // namespace tools
