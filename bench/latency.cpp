// From an error in the driver to the log, with an empty directory and with many archives in it.
#include <filesystem>
#include <future>

#include "bench/daemon.h"
#include "bench/measure.h"
#include "bench/measurements.h"
#include "output/output_dir.h"

namespace bench {

namespace {

constexpr int ARCHIVES = 10000;

// Together less than what a retention pass deletes.
void make_archives() {
    const std::string content(600, 'x');
    for (int i = 0; i < ARCHIVES; ++i) {
        char name[64];
        snprintf(name, sizeof name, "/dmd_dump_%05d_%06d.tar.gz", 50000 + i, i);
        write_file(DMD_LOG_DIR + std::string(name), content);
    }
}

// Seconds from a report to its first line, and to the first one behind the retention pass and the head.
struct Latency {
    double first_line, archive_line;
};

Latency measure_report(Daemon* daemon) {
    // Reported beside, so that no line is waiting to be read when the driver is done.
    auto reporting = std::async(std::launch::async, [] {
        const auto start = clock::now();
        report(CLIENT, ERROR_NUMBER, "x");
        return start;
    });
    const auto first_line = daemon->wait_for({std::string(CLIENT) + " has error ("});
    const auto archive_line = daemon->wait_for({"dmd_tar_cmd:"});
    daemon->wait_for({WAITS});
    const auto start = reporting.get();
    run_command("rm " DMD_LOG_DIR "/dmd_dump_20000_*");
    return {std::chrono::duration<double>(first_line - start).count(),
            std::chrono::duration<double>(archive_line - start).count()};
}

Latency measure_reports(Daemon* daemon, int rounds) {
    measure_report(daemon);
    std::vector<double> first_lines, archive_lines;
    for (int round = 0; round < rounds; ++round) {
        const Latency latency = measure_report(daemon);
        first_lines.push_back(latency.first_line);
        archive_lines.push_back(latency.archive_line);
    }
    return {median(first_lines), median(archive_lines)};
}

}  // namespace

void measure_latency(int rounds) {
    std::filesystem::remove_all("/data/android_logs");
    write_configuration({{CLIENT, "unit", ERROR_NUMBER, 1}});
    Daemon daemon(false);
    daemon.wait_until_ready();
    const Latency empty = measure_reports(&daemon, rounds);
    make_archives();
    const Latency full = measure_reports(&daemon, rounds);
    run_command("rm " DMD_LOG_DIR "/dmd_dump_*");
    const std::string beside = "the same, 10,000 archives";
    add_row({"from a driver's report to its first log line", milliseconds(empty.first_line), beside,
             milliseconds(full.first_line), "", ""});
    add_row({"from a driver's report to the log line behind retention pass and head",
             milliseconds(empty.archive_line), beside, milliseconds(full.archive_line), "", ""});
}

}  // namespace bench
