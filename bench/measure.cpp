// Measuring things side by side, and the table of what came out.
#include "bench/measure.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace bench {

namespace {

std::vector<Row> rows;

double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    const double place = part * static_cast<double>(values.size() - 1);
    const auto below = static_cast<size_t>(place);
    const size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (values[above] - values[below]) * (place - static_cast<double>(below));
}

}  // namespace

double seconds_since(clock::time_point start) {
    return std::chrono::duration<double>(clock::now() - start).count();
}

double median(std::vector<double> values) {
    return quantile(std::move(values), 0.5);
}

std::string ratio_of(const Figure& figure) {
    return decimal(figure.ratio, 2) + " (" + decimal(figure.ratio_low, 2) + " to " +
           decimal(figure.ratio_high, 2) + ")";
}

std::vector<Figure> compare(int rounds, const std::vector<Run>& runs) {
    std::vector<std::vector<double>> measured(runs.size()), ratios(runs.size());
    for (int round = -1; round < rounds; ++round) {
        std::vector<double> now(runs.size());
        for (size_t i = 0; i < runs.size(); ++i) {
            const size_t at = round % 2 == 0 ? i : runs.size() - 1 - i;
            now[at] = runs[at]();
        }
        for (size_t i = 0; round >= 0 && i < runs.size(); ++i) {
            measured[i].push_back(now[i]);
            ratios[i].push_back(now[0] / now[i]);
        }
    }
    std::vector<Figure> figures;
    for (size_t i = 0; i < runs.size(); ++i) {
        figures.push_back(
            {median(measured[i]), median(ratios[i]), quantile(ratios[i], 0.25), quantile(ratios[i], 0.75)});
    }
    return figures;
}

double time_program(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const auto start = clock::now();
    pid_t pid = 0;
    int status = posix_spawnp(&pid, arguments[0], nullptr, nullptr, arguments.data(), environ);
    if (status == 0) {
        waitpid(pid, &status, 0);
    }
    const double took = seconds_since(start);
    if (status != 0) {
        throw std::runtime_error(words[0] + " failed");
    }
    return took;
}

void run_command(const std::string& command) {
    if (system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

void write_file(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << content) || (file.close(), !file)) {
        throw std::runtime_error("no room for " + path);
    }
}

const std::string& build_folder() {
    static const std::string folder =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + "/";
    return folder;
}

void add_row(const Row& row) {
    rows.push_back(row);
    fprintf(stderr, "%s: %s; %s: %s; %s\n", row.what.c_str(), row.ours.c_str(), row.beside.c_str(),
            row.theirs.c_str(), row.ratio.c_str());
}

void add_times(const std::string& what, double ours, const std::string& beside, const Figure& theirs,
               double goal) {
    add_row({what, milliseconds(ours), beside, milliseconds(theirs.median), ratio_of(theirs),
             goal == 0 ? "" : "at most " + decimal(goal, 2), goal == 0 || theirs.ratio <= goal});
}

void print_table() {
    puts("| measurement | dmd | beside | its figure | ratio | goal |\n|---|---|---|---|---|---|");
    for (const Row& row : rows) {
        const std::string goal = row.goal.empty() ? "" : row.goal + (row.holds ? ": holds" : ": **missed**");
        printf("| %s | %s | %s | %s | %s | %s |\n", row.what.c_str(), row.ours.c_str(), row.beside.c_str(),
               row.theirs.c_str(), row.ratio.c_str(), goal.c_str());
    }
}

std::string milliseconds(double seconds) {
    const double value = seconds * 1000;
    return decimal(value, value < 1 ? 3 : value < 10 ? 2 : 1) + " ms";
}

std::string decimal(double value, int digits) {
    char text[64];
    snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

}  // namespace bench
