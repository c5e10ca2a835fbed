// The options of dmd-report.
#include "tools/report_command_line.h"

#include <cstdlib>
#include <ctime>
#include <map>
#include <regex>

#include <CLI/CLI.hpp>

#include "desk/command_line.h"
#include "tools/found_phones.h"

namespace tools {
namespace {

constexpr char FILTERS[] = "Which reports";

constexpr char FOOTER[] =
    "It reads what dmd leaves in /data/kvdx_logs/dmd_log: the records dmd_record_N.txt and\n"
    "dmd_commercial_record.txt, and the dumps dmd_dump_NUMBER_TIME.tar.gz and .txt.gz, uncompressed\n"
    "or not. It searches a folder and all folders below for these names, also in a .zip, .tar, .tgz or\n"
    ".tar.xz. It reads a file that you name whatever its name is. The first folders below a PATH are the\n"
    "phones, if they are several; otherwise the PATH is one. A report that stands in several files of a\n"
    "phone is shown once.\n\n"
    "On a terminal a table fits the width. Elsewhere tabs separate the columns, and \\t, \\n, \\r, \\\\ and\n"
    "\\x1b stand for characters that would break a line or a column. The column NOTE says \"cut\" if the\n"
    "end of a report or a part of its head is missing, \"damaged\" if it was found only in a damaged\n"
    "file, and \"dump\" for a dump without a report.\n\n"
    "Examples:\n"
    "  adb root; adb pull /data/kvdx_logs/dmd_log pulled\n"
    "  dmd-report pulled                                  all reports, by time\n"
    "  dmd-report --summary fleet                         what breaks most, on how many phones, since when\n"
    "  dmd-report fleet --phone 'batch2-*' --device 'touch*' --error 20000-20099 --since -7d\n"
    "  dmd-report pulled --show 3                         the third of them, whole\n"
    "  dmd-report fleet --html reports.html               all for a browser, in one file\n\n"
    "Exit status: 0 if everything was read; 1 if something could not be read or written, or no report was\n"
    "found; 2 if the command line is wrong, or there is no report N.";

// The empty value of a script's unset variable is not the same as no option.
std::string not_empty(const std::string& value) {
    return value.empty() ? "its value is empty" : "";
}

std::string is_number(const std::string& value) {
    const bool is_decimal = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    const bool is_short = value.size() <= 9 && (value[0] != '0' || value == "0");
    return is_decimal && is_short ? "" : "\"" + value + "\" is no number, as 7";
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
    throw desk::WrongUsage("--error: \"" + text +
                           "\" is no error number, as 20002, and no range of them from the smaller to the "
                           "larger, as 20000-20099");
}

// The time as the phone's files have it. The desk's clock is taken for the phone's.
std::string stamp_of(time_t second) {
    tm time = {};
    char stamp[32] = "";
    localtime_r(&second, &time);
    strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &time);
    return stamp;
}

// Takes "today", "yesterday", or how long ago: "-30m", "-12h", "-2d", "-1w". Empty for anything else.
std::string parse_relative_time(const std::string& text, bool is_last, time_t now) {
    static const std::regex ago("-([0-9]{1,4})([mhdw])");
    static const std::map<char, time_t> seconds = {{'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 604800}};
    std::smatch parts;
    if (std::regex_match(text, parts, ago)) {
        return stamp_of(now - atol(parts[1].str().c_str()) * seconds.at(*parts[2].first));
    }
    if (text != "today" && text != "yesterday") {
        return "";
    }
    tm day = {};
    localtime_r(&now, &day);
    day.tm_mday -= text == "yesterday" ? 1 : 0;
    day.tm_isdst = -1;
    return stamp_of(mktime(&day)).substr(0, 10) + (is_last ? " 23:59:59" : " 00:00:00");
}

// Takes also "YYYY-MM-DD", "YYYY-MM-DD HH:MM" or "YYYY-MM-DD HH:MM:SS", also with a "T". Returns the first,
// or the last, second of that time.
std::string parse_time(const char* option, const std::string& text, bool is_last, time_t now) {
    static const std::regex form("([0-9]{4}-[0-9]{2}-[0-9]{2})(?:[T ]([0-9]{2}:[0-9]{2})(:[0-9]{2})?)?");
    std::string relative = parse_relative_time(text, is_last, now);
    if (!relative.empty()) {
        return relative;
    }
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
    throw desk::WrongUsage(
        std::string(option) + ": \"" + text +
        "\" is no time, as 2026-11-25, \"2026-11-25 10:11\", 2026-11-25T10:11:12, today, yesterday "
        "or, two days ago, -2d");
}

}  // namespace

Choices parse_command_line(const std::vector<std::string>& words, time_t now) {
    Choices choices;
    std::vector<std::string> errors;
    std::string since, until, by;
    std::optional<long> show;
    std::string html, sqlite;
    bool is_summary = false, json = false, json_lines = false, texts = false, no_pager = false;
    CLI::App app("Shows the bug reports and dumps of dmd in files pulled from phones.", "dmd-report");
    app.footer(FOOTER);
    // Adds an option whose value may be anything but empty.
    const auto add = [&app](const char* name, auto* value, const char* help, const char* type) {
        return app.add_option(name, *value, help)->check(not_empty)->type_name(type);
    };
    add("PATH", &choices.paths, "File, folder to search, or packed pull", "")->required();
    const char* group = FILTERS;
    add("--phone", &choices.filter.phones,
        "Only reports of that phone, in any case; * and ? as in a shell; repeatable", "NAME")
        ->allow_extra_args(false)
        ->group(group);
    add("--device", &choices.filter.devices, "Only reports of that device, likewise", "NAME")
        ->allow_extra_args(false)
        ->group(group);
    add("--error", &errors, "Only that error number, or a range N-M; repeatable", "N")
        ->allow_extra_args(false)
        ->group(group);
    add("--since", &since, "Only from then on: a day, \"DAY HH:MM[:SS]\", today, yesterday, -2d, -12h",
        "WHEN")
        ->group(group);
    add("--until", &until, "Only up to then, including the whole day or minute", "WHEN")->group(group);
    add("--grep", &choices.filter.text, "Only reports whose content holds the text, in any case", "TEXT")
        ->group(group);
    group = "What of them";
    app.add_flag("--summary", is_summary, "One row for each device and error number")->group(group);
    add("--by", &by, "With --summary: one row for each phone or day", "phone|day")
        ->check([](const std::string& value) {
            return value == "phone" || value == "day" ? "" : "\"" + value + "\" is neither phone nor day";
        })
        ->group(group);
    app.add_flag("--texts", texts, "With --summary: one row for like texts, numbers as #")->group(group);
    app.add_option("--show", show, "Show the whole report with that number in the table")
        ->check(is_number)
        ->type_name("N")
        ->group(group);
    app.add_flag("--places", choices.all_places, "With --show: name all places where it stands")
        ->group(group);
    app.add_flag("--json", json, "Print one JSON document, with the problems in it")->group(group);
    app.add_flag("--json-lines", json_lines, "Print a line of JSON for each report, phone by phone")
        ->group(group);
    add("--html", &html, "Write a page for browsers; - for standard output", "FILE")->group(group);
    add("--sqlite", &sqlite, "Add to an SQLite database", "FILE")->group(group);
    group = "How";
    add("--sort", &choices.sort, "Sort a table or summary by that column, counts from the largest", "COLUMN")
        ->group(group);
    app.add_flag("-r,--reverse", choices.reverse, "Sort the other way round")->group(group);
    app.add_option("-n,--lines", choices.most,
                   "Only so many rows: the newest, or the first with --sort or --summary")
        ->check(is_number)
        ->type_name("COUNT")
        ->group(group);
    app.add_flag("--no-pager", no_pager, "Do not show what is long page by page")->group(group);
    add("--names", &choices.names, "Names for error numbers and devices, see dmd-report(1)", "FILE")
        ->group(group);
    add("--phone-from", &choices.phone_from, "Where paths name the phone, as 'pulls/*/{phone}'", "PATTERN")
        ->group(group);
    const auto asked_for = desk::parse(&app, words, {{"phone|day", {"phone", "day"}}});
    if (asked_for) {
        choices.output = Output::HELP;
        choices.help = *asked_for;
        return choices;
    }
    for (const std::string& text : errors) {
        choices.filter.errors.push_back(parse_errors(text));
    }
    if (!since.empty()) {
        choices.filter.since = parse_time("--since", since, false, now);
    }
    if (!until.empty()) {
        choices.filter.until = parse_time("--until", until, true, now);
    }
    for (const CLI::Option* const option : app.get_options()) {
        for (const std::string& value :
             option->get_group() == FILTERS ? option->results() : std::vector<std::string>()) {
            choices.filter_words +=
                (choices.filter_words.empty() ? "" : " ") + option->get_name() + " " + value;
        }
    }
    choices.use_pager = !no_pager;
    choices.file = html.empty() ? sqlite : html;
    choices.show = show;
    if (by == "phone") {
        choices.by = BY_PHONE;
    } else if (by == "day") {
        choices.by = BY_DAY;
    } else if (texts) {
        choices.by = BY_TEXT;
    }
    const struct {
        const char* option;
        Output output;
        bool is_given;
    } outputs[] = {
        {"--summary", Output::SUMMARY, is_summary},
        {"--show", Output::SHOW, show.has_value() && !json},
        {"--json", Output::JSON, json},
        {"--json-lines", Output::JSON_LINES, json_lines},
        {"--html", Output::PAGE, !html.empty()},
        {"--sqlite", Output::DATABASE, !sqlite.empty()},
    };
    const char* chosen = nullptr;
    for (const auto& [option, output, is_given] : outputs) {
        if (!is_given) {
            continue;
        }
        if (chosen != nullptr) {
            throw desk::WrongUsage(std::string(chosen) + " and " + option + " do not go together");
        }
        chosen = option;
        choices.output = output;
    }
    const bool has_rows = choices.output == Output::TABLE || choices.output == Output::SUMMARY;
    const struct {
        bool is_wrong;
        const char* why;
    } rules[] = {
        {show.has_value() && !choices.filter.lets_all_through(),
         "--show takes the number that a report has among all of them, and no filter"},
        {choices.all_places && choices.output != Output::SHOW, "--places goes with --show"},
        {(texts || !by.empty()) && !is_summary, "--by and --texts go with --summary"},
        {texts && !by.empty(), "--by and --texts do not go together"},
        {(!choices.sort.empty() || choices.reverse || choices.most) && !has_rows,
         "--sort, -r and -n go with the table and with --summary"},
        {!since.empty() && !until.empty() && choices.filter.since > choices.filter.until,
         "--since is after --until"},
        {!choices.phone_from.empty() && choices.phone_from.find(PHONE_MARK) == std::string::npos,
         "--phone-from has no {phone} in it"},
    };
    for (const auto& [is_wrong, why] : rules) {
        if (is_wrong) {
            throw desk::WrongUsage(why);
        }
    }
    return choices;
}

}  // namespace tools
