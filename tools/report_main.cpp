// dmd-report: shows the bug reports in files pulled from phones.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "desk/command_line.h"
#include "tools/page_file.h"
#include "tools/pager.h"
#include "tools/phone_reports.h"
#include "tools/report_command_line.h"
#include "tools/report_database.h"
#include "tools/report_filter.h"
#include "tools/report_json.h"
#include "tools/report_names.h"
#include "tools/report_page.h"
#include "tools/report_print.h"
#include "tools/report_summary.h"
#include "tools/terminal.h"

namespace {

using namespace tools;

constexpr int STATUS_DONE = 0;
constexpr int STATUS_INCOMPLETE = 1;
constexpr int STATUS_USAGE = 2;

constexpr char NUMBER_COLUMN[] = "n";  // of the table, which is by time

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

// How far reading is, on a terminal.
class Progress {
  public:
    Progress() = default;
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void tell(const std::string& text) {
        const std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now();
        if (is_shown_ && now - last_ > std::chrono::milliseconds(100)) {
            clear();
            last_ = now;
            is_drawn_ = true;
            fputs(text.c_str(), stderr);
        }
    }
    void clear() {
        if (std::exchange(is_drawn_, false)) {
            fputs("\r\033[K", stderr);
        }
    }

  private:
    const bool is_shown_ = isatty(STDERR_FILENO) == 1;
    bool is_drawn_ = false;
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

void complain(const std::string& line) {
    const std::string text = "dmd-report: " + one_line(line);
    fprintf(stderr, "%s\n", paint(describe_terminal(STDERR_FILENO), Colour::YELLOW, text).c_str());
}

void complain(const std::vector<Problem>& problems) {
    for (const Problem& problem : problems) {
        complain(problem.file + ": " + problem.text);
    }
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

void print_page(const std::string& path, const std::string& page) {
    if (path == "-") {
        put(page);
    } else {
        write_page(path, page);
    }
}

// Brings the rows into the order and to the number that are asked for.
void arrange(const Choices& choices, const std::string& usual_column, Table* table) {
    const std::string column = choices.sort.empty() ? usual_column : choices.sort;
    std::string titles;
    size_t sort_by = table->columns.size();
    for (size_t i = 0; i < table->columns.size(); ++i) {
        std::string title = table->columns[i].title;
        std::transform(title.begin(), title.end(), title.begin(), [](char c) { return tolower(c); });
        titles += (titles.empty() ? "" : ", ") + title;
        sort_by = title == column ? i : sort_by;
    }
    if (sort_by == table->columns.size()) {
        throw desk::WrongUsage("--sort: there is no column \"" + column + "\"; columns: " + titles);
    }
    sort_rows(table, sort_by);
    std::vector<Row>& rows = table->rows;
    const size_t most = std::min(choices.most.value_or(rows.size()), rows.size());
    if (column == NUMBER_COLUMN) {  // by time: the newest are asked for
        rows.erase(rows.begin(), rows.end() - static_cast<ptrdiff_t>(most));
    }
    if (choices.reverse) {
        std::reverse(rows.begin(), rows.end());
    }
    rows.resize(most);
}

// On a terminal, the pager that shows what is printed while it lives.
std::unique_ptr<Pager> start_pager(const Choices& choices) {
    return describe_terminal().is_terminal && choices.use_pager ? std::make_unique<Pager>() : nullptr;
}

// Prints a table, and on a terminal a line below it.
void print_table(const Choices& choices, const Table& table, const std::string& below) {
    const Terminal terminal = describe_terminal();
    const std::unique_ptr<Pager> pager = start_pager(choices);
    put(format_table(terminal, table));
    if (terminal.is_terminal) {
        put(paint(terminal, Colour::DIM, below) + "\n");
    }
    finish_output();
}

void print_report(const Choices& choices, const Report& report) {
    const Terminal terminal = describe_terminal();
    const std::unique_ptr<Pager> pager = start_pager(choices);
    show_report(terminal, report, choices.all_places, put);
    finish_output();
}

// The report of that number.
const Report& report_of(const std::vector<Report>& reports, long number) {
    if (number < 1 || static_cast<size_t>(number) > reports.size()) {
        throw desk::WrongUsage("there is no report " + std::to_string(number) + ": there are " +
                               counted(reports.size(), "report"));
    }
    return reports[static_cast<size_t>(number) - 1];
}

// What is taken of a phone, and what its filter left out.
struct Taken {
    PhoneReports phone;
    FilterCounts counts;
    std::string lines;  // of JSON
};

class Run {
  public:
    explicit Run(const Choices& choices)
        : choices_(choices), is_by_phone_(BY_PHONE.count(choices.output) > 0) {}

    int run();

  private:
    // These need no more than one phone at a time.
    inline static const std::set<Output> BY_PHONE = {Output::SUMMARY, Output::JSON_LINES, Output::DATABASE};

    void read();
    Taken take_of(PhoneReports phone) const;
    void take(Taken taken);
    void add_problems(std::vector<Problem> problems);
    void finish_all();
    void finish_table(const std::vector<Report>& all, const std::vector<const Report*>& reports);
    void finish_summary();

    const Choices& choices_;
    const bool is_by_phone_;
    ReportNames names_;
    std::vector<Problem> problems_;
    bool has_problems_ = false;
    FilterCounts counts_;
    size_t files_ = 0;
    size_t passing_ = 0;
    std::vector<PhoneReports> phones_;
    std::optional<ReportSummary> summary_;
    std::optional<ReportDatabase> database_;
};

int Run::run() {
    if (!choices_.names.empty()) {
        std::vector<Problem> problems;
        names_ = ReportNames(choices_.names, &problems);
        add_problems(std::move(problems));
    }
    if (choices_.output == Output::SUMMARY) {
        summary_.emplace(choices_.by);
    } else if (choices_.output == Output::DATABASE) {
        database_.emplace(choices_.file);
    }
    read();
    if (!is_by_phone_) {
        finish_all();
    } else if (database_) {
        database_->finish();
    } else if (summary_) {
        finish_summary();
    }
    finish_output();
    if (passing_ == 0) {
        for (const std::string& line : why_none(choices_.filter, counts_)) {
            complain(line);
        }
    }
    return has_problems_ || passing_ == 0 ? STATUS_INCOMPLETE : STATUS_DONE;
}

void Run::read() {
    Progress progress;
    FoundPhones found = find_phones(choices_.paths, choices_.phone_from, [&](const std::string& pull) {
        progress.tell("unpacking " + one_line(pull));
    });
    progress.clear();
    if (database_) {
        database_->add({"", {}, found.problems, 0});
    }
    add_problems(std::move(found.problems));
    std::vector<FoundPhone>& phones = found.phones;
    if (is_by_phone_) {
        // No number of a report depends on phones that are not asked for.
        const auto is_out = [&](const FoundPhone& phone) {
            counts_.phones.insert(phone.name);
            return !passes(choices_.filter, phone.name);
        };
        phones.erase(std::remove_if(phones.begin(), phones.end(), is_out), phones.end());
    }
    size_t phones_read = 0;
    read_phones<Taken>(
        phones, [this](PhoneReports phone) { return take_of(std::move(phone)); },
        [&](Taken taken) {
            if (!taken.lines.empty() || !taken.phone.problems.empty()) {
                progress.clear();
            }
            take(std::move(taken));
            ++phones_read;
            progress.tell("reading phone " + std::to_string(phones_read) + " of " +
                          std::to_string(phones.size()));
        });
}

// In a thread of its own.
Taken Run::take_of(PhoneReports phone) const {
    Taken taken;
    names_.apply(&phone.reports);
    if (is_by_phone_) {
        std::vector<Report>& reports = phone.reports;
        const auto is_out = [&](const Report& report) {
            return !passes(choices_.filter, report, &taken.counts);
        };
        reports.erase(std::remove_if(reports.begin(), reports.end(), is_out), reports.end());
    }
    if (choices_.output == Output::JSON_LINES) {
        for (const Report& report : phone.reports) {
            taken.lines += line_of(report);
        }
    }
    taken.phone = std::move(phone);
    return taken;
}

void Run::take(Taken taken) {
    counts_.add(taken.counts);
    files_ += taken.phone.files;
    if (is_by_phone_) {
        passing_ += taken.phone.reports.size();
    }
    put(taken.lines);
    if (summary_) {
        for (const Report& report : taken.phone.reports) {
            summary_->add(report);
        }
    }
    if (database_) {
        database_->add(taken.phone);
    }
    add_problems(std::move(taken.phone.problems));
    if (!is_by_phone_) {
        phones_.push_back(std::move(taken.phone));
    }
}

// They are told at once, but for those of a JSON document, which has them in it. A page has them too.
void Run::add_problems(std::vector<Problem> problems) {
    has_problems_ = has_problems_ || !problems.empty();
    if (choices_.output != Output::JSON) {
        complain(problems);
    }
    if (choices_.output == Output::JSON || choices_.output == Output::PAGE) {
        std::move(problems.begin(), problems.end(), std::back_inserter(problems_));
    }
}

void Run::finish_all() {
    std::vector<std::string> phone_names;
    for (const PhoneReports& phone : phones_) {
        if (passes(choices_.filter, phone.phone)) {
            phone_names.push_back(phone.phone);
        }
    }
    const std::vector<Report> all = all_by_time(std::move(phones_));
    std::vector<const Report*> reports;
    for (const Report& report : all) {
        if (passes(choices_.filter, report, &counts_)) {
            reports.push_back(&report);
        }
    }
    if (choices_.show) {
        reports = {&report_of(all, *choices_.show)};
    }
    passing_ = reports.size();
    switch (choices_.output) {
        case Output::JSON:
            print_json(reports, problems_);
            break;
        case Output::PAGE:
            print_page(choices_.file, make_report_page(reports, problems_,
                                                       {choices_.paths, phone_names, choices_.filter_words}));
            break;
        case Output::SHOW:
            print_report(choices_, *reports[0]);
            break;
        default:
            finish_table(all, reports);
            break;
    }
}

void Run::finish_table(const std::vector<Report>& all, const std::vector<const Report*>& reports) {
    Table table = report_table(describe_terminal(), reports);
    arrange(choices_, NUMBER_COLUMN, &table);
    std::string line = counted(table.rows.size(), "report") + " of " + std::to_string(all.size()) +
                       ", from " + counted(files_, "file");
    if (counts_.without_date > 0) {
        line += "; " + std::to_string(counts_.without_date) + " without a date left out";
    }
    print_table(choices_, table, line + "; one of them whole: --show N");
}

void Run::finish_summary() {
    Table table = summary_->table(describe_terminal());
    arrange(choices_, choices_.by == BY_DAY ? "day" : "reports", &table);
    const std::string legend = summary_->legend();
    print_table(choices_, table,
                counted(passing_, "report") + " on " + counted(summary_->phones(), "phone") +
                    (legend.empty() ? "" : "; ") + legend);
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
        setlocale(LC_CTYPE, "C.UTF-8");  // names in archives are UTF-8, and characters have the widths of it
        const Choices choices = parse_command_line({argv + std::min(argc, 1), argv + argc}, time(nullptr));
        if (choices.output != Output::HELP) {
            return Run(choices).run();
        }
        put(choices.help);
        finish_output();
        return STATUS_DONE;
    } catch (const desk::WrongUsage& error) {
        complain(error.what());
        return STATUS_USAGE;
    } catch (const std::exception& error) {
        complain(error.what());
        return STATUS_INCOMPLETE;
    }
}
