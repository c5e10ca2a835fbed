// Measuring things side by side, and the table of what came out. Everything here throws where something
// fails.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using clock = std::chrono::steady_clock;
using std::to_string;

double seconds_since(clock::time_point start);

double median(std::vector<double> values);

// One measurement; returns what it measured.
using Run = std::function<double()>;

// What came out of one of several runs.
struct Figure {
    double median;
    // The first run's to this one's within a round: the median, and what half of the rounds lie between.
    double ratio, ratio_low, ratio_high;
};

std::string ratio_of(const Figure& figure);

// Makes each run once unmeasured and then `rounds` times, in turn, every other round in the other order, so
// that what changes meanwhile meets all alike.
std::vector<Figure> compare(int rounds, const std::vector<Run>& runs);

// Runs a program to its end. Returns the seconds from its start; throws when its status is not 0.
double time_program(const std::vector<std::string>& words);

// Runs a command through the shell; throws when its status is not 0.
void run_command(const std::string& command);

// Makes a file, or makes it anew.
void write_file(const std::string& path, const std::string& content);

// The folder of this program and of those that are built with it, with a "/" behind it.
const std::string& build_folder();

struct Row {
    std::string what;
    std::string ours;
    std::string beside;  // the peer, or nothing
    std::string theirs;
    std::string ratio;
    std::string goal;  // or nothing
    bool holds = true;
};

void add_row(const Row& row);

// Adds the row of a figure in seconds beside the first one's. `goal` is the largest ratio that holds, 0 for
// none.
void add_times(const std::string& what, double ours, const std::string& beside, const Figure& theirs,
               double goal = 0);

void print_table();  // as Markdown

std::string milliseconds(double seconds);

std::string decimal(double value, int digits);  // digits behind the point

}  // namespace bench
