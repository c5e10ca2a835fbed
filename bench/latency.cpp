// From an error in the driver to the log, with ever more archives in the directory.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>

#include "bench/daemon.h"
#include "bench/measure.h"
#include "bench/measurements.h"
#include "output/output_dir.h"

namespace bench {

namespace {

constexpr double GROWTH_GOAL = 0.002;  // seconds for each 1,000 archives
constexpr double LINE_GOAL = 0.1;      // the most that a size may lie beside a line, of the whole growth
constexpr int SIZES = 5;               // of the directory, from empty on
constexpr int STEP = 2500;             // archives from one to the next
constexpr double THOUSANDS = (SIZES - 1) * STEP / 1000.0;

// Fills the directory from `made` archives up to `count`.
void make_archives(int made, int count) {
    const std::string content(600, 'x');  // together less than what a retention pass deletes
    for (; made < count; ++made) {
        char name[64];
        snprintf(name, sizeof name, "/dmd_dump_%05d_%06d.tar.gz", 50000 + made, made);
        write_file(DMD_LOG_DIR + std::string(name), content);
    }
}

// Seconds from a report to its first line, and to the first one behind the retention pass and the head.
struct Latency {
    double first_line, archive_line;
};

Latency measure_report(Daemon* daemon) {
    const std::string first_text = std::string(CLIENT) + " has error (";
    const auto start = clock::now();
    report(FIRST_NUMBER + 1, "x");
    const std::chrono::duration<double> first_line = daemon->wait_for({first_text}) - start;
    const std::chrono::duration<double> archive_line = daemon->wait_for({"dmd_tar_cmd:"}) - start;
    daemon->wait_for({WAITS});
    run_command("rm " DMD_LOG_DIR "/dmd_dump_20001_*");
    return {first_line.count(), archive_line.count()};
}

// Seconds that it takes to read the names in the directory and the status of each.
double time_directory_walk() {
    const auto start = clock::now();
    DIR* const directory = opendir(DMD_LOG_DIR);
    if (directory == nullptr) {
        throw std::runtime_error("no " DMD_LOG_DIR);
    }
    while (const dirent* const entry = readdir(directory)) {
        struct stat status;
        fstatat(dirfd(directory), entry->d_name, &status, 0);
    }
    closedir(directory);
    return seconds_since(start);
}

// A straight line through the figures of the sizes.
struct Line {
    double slope;      // from the first size to the last
    double deviation;  // the most that a figure lies beside it
};

Line fit_line(const double (&figures)[SIZES]) {
    constexpr double MIDDLE = (SIZES - 1) / 2.0;
    double mean = 0, rise = 0, run = 0;
    for (int i = 0; i < SIZES; ++i) {
        mean += figures[i] / SIZES;
        rise += (i - MIDDLE) * figures[i];
        run += (i - MIDDLE) * (i - MIDDLE);
    }
    double deviation = 0;
    for (int i = 0; i < SIZES; ++i) {
        deviation = std::max(deviation, std::abs(figures[i] - mean - rise / run * (i - MIDDLE)));
    }
    return {rise / run * (SIZES - 1), deviation};
}

}  // namespace

void measure_latency(int rounds) {
    std::filesystem::remove_all("/data/android_logs");
    configure_one_client();
    Daemon daemon(false);
    daemon.wait_until_ready();
    std::vector<double> first_lines[SIZES], archive_lines[SIZES], growths, walks, ratios;
    for (int round = -1; round < rounds; ++round) {
        double now[SIZES];
        for (int i = 0; i < SIZES; ++i) {
            make_archives(std::max(0, i - 1) * STEP, i * STEP);
            const Latency latency = measure_report(&daemon);
            now[i] = latency.archive_line;
            if (round >= 0) {
                first_lines[i].push_back(latency.first_line);
                archive_lines[i].push_back(latency.archive_line);
            }
        }
        const double walk = time_directory_walk() / THOUSANDS, growth = fit_line(now).slope / THOUSANDS;
        run_command("rm " DMD_LOG_DIR "/dmd_dump_*");
        if (round >= 0) {
            growths.push_back(growth);
            walks.push_back(walk);
            ratios.push_back(growth / walk);
        }
    }
    const auto add_latency = [](const std::string& what, const std::vector<double>(&lines)[SIZES]) {
        add_row({what, milliseconds(median(lines[0])), "the same, 10,000 archives",
                 milliseconds(median(lines[SIZES - 1])), "", ""});
    };
    add_latency("from a driver's report to its first log line", first_lines);
    add_latency("from a driver's report to the log line behind retention pass and head", archive_lines);
    const double growth = median(growths);
    add_row({"its growth for 1,000 archives", milliseconds(growth),
             "floor: a loop of `readdir` and `fstatat`", milliseconds(median(walks)),
             decimal(median(ratios), 2), "under 2 ms", growth < GROWTH_GOAL});
    double figures[SIZES];
    std::transform(std::begin(archive_lines), std::end(archive_lines), figures, median);
    const Line line = fit_line(figures);
    add_row({"most that it lies beside a line through " + to_string(SIZES) + " sizes",
             milliseconds(line.deviation), "growth to 10,000 archives", milliseconds(line.slope),
             decimal(line.deviation / line.slope, 2), "at most " + decimal(LINE_GOAL, 2),
             line.deviation <= LINE_GOAL * line.slope});
}

}  // namespace bench
