// dmd-report: shows the bug reports in files pulled from a phone.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/page_file.h"
#include "tools/report_collection.h"
#include "tools/report_command_line.h"
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

void put(std::string_view text) {
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw std::runtime_error(std::string("cannot write the output: ") + strerror(errno));
    }
}

void finish_output() {
    if (fflush(stdout) != 0) {
        throw std::runtime_error(std::string("cannot write the output: ") + strerror(errno));
    }
}

void complain(const std::string& line) {
    const std::string text = "dmd-report: " + one_line(line);
    fprintf(stderr, "%s\n", paint(describe_terminal(STDERR_FILENO), Colour::YELLOW, text).c_str());
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

void print_page(const std::string& path, const std::vector<const Report*>& reports,
                const std::vector<Problem>& problems) {
    nlohmann::json document = {{"reports", nlohmann::json::array()}, {"problems", json_of(problems)}};
    for (const Report* const report : reports) {
        document["reports"].push_back(short_json_of(*report, PAGE_CONTENT_MAX));
    }
    const std::string page = make_report_page(document);
    if (path == "-") {
        put(page);
    } else {
        write_page(path, page);
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

// The report of that number.
const Report& report_of(const Collection& collection, long number) {
    if (number < 1 || static_cast<size_t>(number) > collection.reports.size()) {
        throw WrongUsage("there is no report " + std::to_string(number) + ": there are " +
                         counted(collection.reports.size(), "report"));
    }
    return collection.reports[static_cast<size_t>(number) - 1];
}

int run(const Choices& choices) {
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
        if (passes(choices.filter, report, &date_missing)) {
            reports.push_back(&report);
        }
        without_date += date_missing ? 1 : 0;
    }
    if (choices.show) {
        reports = {&report_of(collection, *choices.show)};
    }
    if (choices.json) {
        print_json(reports, collection.problems);
    } else if (choices.show) {
        show_report(describe_terminal(), *reports[0], put);
    } else if (!choices.html.empty()) {
        print_page(choices.html, reports, collection.problems);
    } else {
        print_table(reports, collection, without_date);
    }
    finish_output();
    return collection.problems.empty() && !reports.empty() ? STATUS_DONE : STATUS_INCOMPLETE;
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
        const Choices choices = parse_command_line(argc, argv);
        if (choices.help.empty()) {
            return run(choices);
        }
        put(choices.help);
        finish_output();
        return STATUS_DONE;
    } catch (const WrongUsage& error) {
        complain(error.what());
        return STATUS_USAGE;
    } catch (const std::exception& error) {
        complain(error.what());
        return STATUS_INCOMPLETE;
    }
}
