// What a command line of dmd-report asks for.
#pragma once

#include <ctime>
#include <optional>
#include <stdexcept>
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
    std::string help;  // to be printed
};

// A command line that asks for something that there is not; its text says what.
class WrongUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws WrongUsage. Words such as "yesterday" are reckoned from the second `now`, on this machine's clock.
Choices parse_command_line(int argc, char** argv, time_t now);

}  // namespace tools
