// dmd-report: shows the bug reports in files pulled from a phone.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "platform/owned.h"
#include "tools/pulled_file.h"
#include "tools/replaced_file.h"
#include "tools/report_collection.h"
#include "tools/report_filter.h"
#include "tools/report_json.h"
#include "tools/report_page.h"
#include "tools/report_print.h"
#include "tools/terminal.h"

namespace {

using namespace tools;

constexpr int STATUS_DONE = 0;
constexpr int STATUS_INCOMPLETE = 1;
constexpr int STATUS_USAGE = 2;

// Bytes of a content that a page shows.
constexpr size_t PAGE_CONTENT_MAX = 64 * 1024;

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

struct Choices {
    std::vector<std::string> paths;
    std::vector<std::string> devices;
    std::vector<std::string> errors;
    std::string since;
    std::string until;
    std::optional<long> show;
    bool json = false;
    std::string html;
};

// A command line that asks for something that there is not.
class WrongUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

void put(std::string_view text) {
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw OutputError(std::string("cannot write the output: ") + strerror(errno));
    }
}

void finish_output() {
    if (fflush(stdout) != 0) {
        throw OutputError(std::string("cannot write the output: ") + strerror(errno));
    }
}

void complain(const std::string& line) {
    const std::string text = "dmd-report: " + one_line(line);
    fprintf(stderr, "%s\n", paint(describe_terminal(STDERR_FILENO), Colour::YELLOW, text).c_str());
}

// The empty value of a script's unset variable is not the same as no option.
std::string not_empty(const std::string& value) {
    return value.empty() ? "its value is empty" : "";
}

std::string is_number(const std::string& value) {
    const bool is_decimal = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    return is_decimal && (value[0] != '0' || value == "0") ? ""
                                                           : "\"" + value + "\" is no number of a report";
}

// What an option's parser says is wrong with its value.
template <typename Parse>
auto parsed(const char* option, Parse parse) {
    try {
        return parse();
    } catch (const BadValue& error) {
        throw WrongUsage(std::string(option) + ": " + error.what());
    }
}

ReportFilter filter_of(const Choices& choices) {
    ReportFilter filter;
    filter.devices = choices.devices;
    for (const std::string& text : choices.errors) {
        filter.errors.push_back(parsed("--error", [&] { return parse_errors(text); }));
    }
    if (!choices.since.empty()) {
        filter.since = parsed("--since", [&] { return parse_time(choices.since, false); });
    }
    if (!choices.until.empty()) {
        filter.until = parsed("--until", [&] { return parse_time(choices.until, true); });
    }
    return filter;
}

// One report after the other: all of them as one document would take several times their room.
void print_json(const std::vector<const Report*>& reports, const std::vector<Problem>& problems) {
    put("{\"problems\":" + text_of(json_of(problems)) + ",\"reports\":[");
    const char* separator = "\n";
    for (const Report* const report : reports) {
        put(separator + text_of(json_of(*report)));
        separator = ",\n";
    }
    put("]}\n");
}

// "--html pulled/*" is not to cost the first of the pulled files: only a page is replaced.
void require_replaceable(const std::string& path) {
    constexpr std::string_view BEGINNING = "<!DOCTYPE html>";
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) {
        return;
    }
    char bytes[BEGINNING.size()] = "";
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid() || read(fd.get(), bytes, sizeof bytes) != static_cast<ssize_t>(sizeof bytes) ||
        std::string_view(bytes, sizeof bytes) != BEGINNING) {
        throw OutputError("cannot write " + path + ": it is there and is no page");
    }
}

void write_page(const std::string& path, const std::vector<const Report*>& reports,
                const std::vector<Problem>& problems) {
    nlohmann::json document = {{"reports", nlohmann::json::array()}, {"problems", json_of(problems)}};
    for (const Report* const report : reports) {
        document["reports"].push_back(short_json_of(*report, PAGE_CONTENT_MAX));
    }
    const std::string page = make_report_page(document);
    if (path == "-") {
        put(page);
    } else {
        require_replaceable(path);
        replace_file(path, page);
    }
}

void print_table(const std::vector<const Report*>& reports, const Collection& collection,
                 size_t without_date) {
    const Terminal terminal = describe_terminal();
    put(report_table(terminal, reports));
    if (!terminal.is_terminal) {
        return;
    }
    std::string line = counted(reports.size(), "report") + " of " +
                       std::to_string(collection.reports.size()) + ", from " +
                       counted(collection.files, "file");
    if (without_date > 0) {
        line += "; " + std::to_string(without_date) + " without a date left out";
    }
    put(paint(terminal, Colour::DIM, line + "; one of them whole: --show N") + "\n");
}

void show(const Choices& choices, const Collection& collection) {
    const long number = *choices.show;
    if (number < 1 || static_cast<size_t>(number) > collection.reports.size()) {
        throw WrongUsage("there is no report " + std::to_string(number) + ": there are " +
                         counted(collection.reports.size(), "report"));
    }
    const Report& report = collection.reports[static_cast<size_t>(number) - 1];
    if (choices.json) {
        print_json({&report}, collection.problems);
    } else {
        show_report(describe_terminal(), report, put);
    }
}

int run(const Choices& choices) {
    const ReportFilter filter = filter_of(choices);
    const Collection collection = collect_reports(choices.paths);
    if (!choices.json) {
        for (const Problem& problem : collection.problems) {
            complain(problem.file + ": " + problem.text);
        }
    }
    std::vector<const Report*> reports;
    size_t without_date = 0;
    for (const Report& report : collection.reports) {
        bool date_missing = false;
        if (passes(filter, report, &date_missing)) {
            reports.push_back(&report);
        }
        without_date += date_missing ? 1 : 0;
    }
    if (choices.show) {
        show(choices, collection);
    } else if (choices.json) {
        print_json(reports, collection.problems);
    } else if (!choices.html.empty()) {
        write_page(choices.html, reports, collection.problems);
    } else {
        print_table(reports, collection, without_date);
    }
    finish_output();
    return collection.problems.empty() && !reports.empty() ? STATUS_DONE : STATUS_INCOMPLETE;
}

// Adds an option that may be given again.
void add_repeatable(CLI::App* app, const char* name, std::vector<std::string>* values, const char* help,
                    const char* type) {
    app->add_option(name, *values, help)->allow_extra_args(false)->check(not_empty)->type_name(type);
}

int do_command_line(int argc, char** argv) {
    Choices choices;
    CLI::App app("Shows the bug reports and dumps of dmd in files pulled from a phone.", "dmd-report");
    app.footer(FOOTER);
    app.add_option("PATH", choices.paths, "File, or folder to search")
        ->required()
        ->check(not_empty)
        ->type_name("");
    add_repeatable(&app, "--device", &choices.devices,
                   "Only reports of that device, in any case; * and ? as in a shell; repeatable", "NAME");
    add_repeatable(&app, "--error", &choices.errors, "Only that error number, or a range N-M; repeatable",
                   "N");
    app.add_option("--since", choices.since, "Only from that time on: a day, or \"DAY HH:MM[:SS]\"")
        ->check(not_empty)
        ->type_name("WHEN");
    app.add_option("--until", choices.until, "Only up to that time, including the whole day or minute")
        ->check(not_empty)
        ->type_name("WHEN");
    app.add_option("--show", choices.show, "Show the whole report with that number in the table")
        ->check(is_number)
        ->type_name("N");
    app.add_flag("--json", choices.json, "Print one JSON document, with the problems in it");
    app.add_option("--html", choices.html, "Write a page for browsers; - for standard output")
        ->check(not_empty)
        ->type_name("FILE");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            put(app.help());
            finish_output();
            return STATUS_DONE;
        }
        throw WrongUsage(std::string(error.what()) + " (--help tells what there is)");
    }
    if (choices.show &&
        (app.count("--device") + app.count("--error") + app.count("--since") + app.count("--until")) > 0) {
        throw WrongUsage("--show takes the number that a report has among all of them, and no filter");
    }
    if (!choices.html.empty() && (choices.json || choices.show)) {
        throw WrongUsage("--html goes with neither --json nor --show");
    }
    return run(choices);
}

// A file must not become what something is printed to.
void fill_standard_descriptors() {
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    if (fd > STDERR_FILENO) {
        close(fd);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        fill_standard_descriptors();
        return do_command_line(argc, argv);
    } catch (const WrongUsage& error) {
        complain(error.what());
        return STATUS_USAGE;
    } catch (const std::exception& error) {
        complain(error.what());
        return STATUS_INCOMPLETE;
    }
}
