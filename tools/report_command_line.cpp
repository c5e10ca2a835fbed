// The options of dmd-report.
#include "tools/report_command_line.h"

#include <cstdlib>
#include <ctime>
#include <regex>

#include <CLI/CLI.hpp>

namespace tools {
namespace {

constexpr char FOOTER[] =
    "It reads what dmd leaves in /data/kvdx_logs/dmd_log: the records dmd_record_N.txt and\n"
    "dmd_commercial_record.txt, and the dumps dmd_dump_NUMBER_TIME.tar.gz and .txt.gz, uncompressed\n"
    "or not. It searches a folder and all folders below for these names. It reads a file that you\n"
    "name whatever its name is. A report that stands in a record and in archives is shown once; a\n"
    "copy with a part missing is a row of its own.\n\n"
    "On a terminal it prints a table. Elsewhere tabs separate the columns, and \\t, \\n, \\r, \\\\ and\n"
    "\\x1b stand for characters that would break a line or a column. The column NOTE says \"cut\" if\n"
    "the end of a report or a part of its head is missing, and \"dump\" for a dump without a report.\n\n"
    "Examples:\n"
    "  adb root; adb pull /data/kvdx_logs/dmd_log pulled\n"
    "  dmd-report pulled                                  all reports, by time\n"
    "  dmd-report pulled --device 'touch*' --error 20000-20099\n"
    "  dmd-report pulled --since 2026-11-24 --until '2026-11-25 10:30'\n"
    "  dmd-report pulled --show 3                         the third of them, whole\n"
    "  dmd-report pulled --html reports.html              all for a browser, in one file\n\n"
    "Exit status: 0 if everything was read; 1 if something could not be read or written, or no report was\n"
    "found; 2 if the command line is wrong, or there is no report N.";

// The empty value of a script's unset variable is not the same as no option.
std::string not_empty(const std::string& value) {
    return value.empty() ? "its value is empty" : "";
}

std::string is_number(const std::string& value) {
    const bool is_decimal = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    return is_decimal && (value[0] != '0' || value == "0") ? ""
                                                           : "\"" + value + "\" is no number of a report";
}

// Takes "N" or "N-M", where both may be negative.
ErrorRange parse_errors(const std::string& text) {
    static const std::regex form("(-?[0-9]{1,10})(?:-(-?[0-9]{1,10}))?");
    std::smatch parts;
    if (std::regex_match(text, parts, form)) {
        const long long first = strtoll(parts[1].str().c_str(), nullptr, 10);
        const long long last = parts[2].matched ? strtoll(parts[2].str().c_str(), nullptr, 10) : first;
        if (INT32_MIN <= first && first <= last && last <= INT32_MAX) {
            return {static_cast<int32_t>(first), static_cast<int32_t>(last)};
        }
    }
    throw WrongUsage("--error: \"" + text +
                     "\" is no error number, as 20002, and no range of them from the smaller to the "
                     "larger, as 20000-20099");
}

// Takes "YYYY-MM-DD", "YYYY-MM-DD HH:MM" or "YYYY-MM-DD HH:MM:SS", also with a "T". Returns the first, or the
// last, second of that time.
std::string parse_time(const char* option, const std::string& text, bool is_last) {
    static const std::regex form("([0-9]{4}-[0-9]{2}-[0-9]{2})(?:[T ]([0-9]{2}:[0-9]{2})(:[0-9]{2})?)?");
    std::smatch parts;
    if (std::regex_match(text, parts, form)) {
        std::string whole = is_last ? "YYYY-MM-DD 23:59:59" : "YYYY-MM-DD 00:00:00";
        whole.replace(0, text.size(), text);
        whole[10] = ' ';
        // A day or an hour that there is not comes back as another one.
        tm time = {};
        char again[32] = "";
        if (strptime(whole.c_str(), "%Y-%m-%d %H:%M:%S", &time) != nullptr) {
            time_t second = timegm(&time);
            gmtime_r(&second, &time);
            strftime(again, sizeof again, "%Y-%m-%d %H:%M:%S", &time);
        }
        if (whole == again) {
            return whole;
        }
    }
    throw WrongUsage(std::string(option) + ": \"" + text +
                     "\" is no day, as 2026-11-25, and no time, as \"2026-11-25 10:11\" or "
                     "2026-11-25T10:11:12");
}

}  // namespace

Choices parse_command_line(int argc, char** argv) {
    Choices choices;
    std::vector<std::string> errors;
    std::string since;
    std::string until;
    CLI::App app("Shows the bug reports and dumps of dmd in files pulled from a phone.", "dmd-report");
    app.footer(FOOTER);
    // Adds an option whose value may be anything but empty.
    const auto add = [&app](const char* name, auto* value, const char* help, const char* type) {
        return app.add_option(name, *value, help)->check(not_empty)->type_name(type);
    };
    add("PATH", &choices.paths, "File, or folder to search", "")->required();
    add("--device", &choices.filter.devices,
        "Only reports of that device, in any case; * and ? as in a shell; repeatable", "NAME")
        ->allow_extra_args(false);
    add("--error", &errors, "Only that error number, or a range N-M; repeatable", "N")
        ->allow_extra_args(false);
    add("--since", &since, "Only from that time on: a day, or \"DAY HH:MM[:SS]\"", "WHEN");
    add("--until", &until, "Only up to that time, including the whole day or minute", "WHEN");
    app.add_option("--show", choices.show, "Show the whole report with that number in the table")
        ->check(is_number)
        ->type_name("N");
    app.add_flag("--json", choices.json, "Print one JSON document, with the problems in it");
    add("--html", &choices.html, "Write a page for browsers; - for standard output", "FILE");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            choices.help = app.help();
            return choices;
        }
        throw WrongUsage(std::string(error.what()) + " (--help tells what there is)");
    }
    const bool is_filtered =
        !choices.filter.devices.empty() || !errors.empty() || !since.empty() || !until.empty();
    if (choices.show && is_filtered) {
        throw WrongUsage("--show takes the number that a report has among all of them, and no filter");
    }
    if (!choices.html.empty() && (choices.json || choices.show)) {
        throw WrongUsage("--html goes with neither --json nor --show");
    }
    for (const std::string& text : errors) {
        choices.filter.errors.push_back(parse_errors(text));
    }
    if (!since.empty()) {
        choices.filter.since = parse_time("--since", since, false);
    }
    if (!until.empty()) {
        choices.filter.until = parse_time("--until", until, true);
    }
    return choices;
}

}  // namespace tools
