// What a command line of dmd-report asks for.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "tools/report_filter.h"
#include "tools/report_summary.h"

namespace tools {

enum class Output { TABLE, SUMMARY, SHOW, JSON, JSON_LINES, PAGE, DATABASE, HELP };

struct Choices {
    Output output = Output::TABLE;
    std::vector<std::string> paths;
    std::string phone_from;  // see find_phones
    std::string names;       // the file of names; empty: none
    ReportFilter filter;
    std::string filter_words;    // as they were given
    std::string sort;            // a column's title in small letters; empty: as usual
    bool reverse = false;        // the rows
    std::optional<size_t> most;  // rows
    bool use_pager = true;
    std::optional<long> show;  // number of the one report
    bool all_places = false;
    SummaryBy by = BY_ERROR;
    std::string file;  // where a page or a database is to be
    std::string help;  // or another text to be printed, with Output::HELP
};

// Reads the words behind the program's name. Throws desk::WrongUsage. Words such as "yesterday" are reckoned
// from the second `now`, on this machine's clock.
Choices parse_command_line(const std::vector<std::string>& words, time_t now);

}  // namespace tools
