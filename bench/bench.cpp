// The measurements of docs/performance.md, in a phone: phone run -- dmd_bench. The table goes to standard
// output.
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "bench/daemon.h"
#include "bench/measure.h"
#include "bench/measurements.h"

int main(int argc, char** argv) try {
    int rounds = 15;
    unsigned idle = 60;
    std::string arm_program, rasdaemon;
    std::vector<std::string> only;
    CLI::App app("Measures the daemon beside its peers, in a phone: phone run -- dmd_bench", "dmd_bench");
    app.add_option("--rounds", rounds, "Runs of each measurement")->check(CLI::PositiveNumber);
    app.add_option("--idle", idle, "Seconds for which the daemon is left alone")->check(CLI::PositiveNumber);
    app.add_option("--arm", arm_program, "The program that was built for 32-bit ARM");
    app.add_option("--rasdaemon", rasdaemon, "The folder that the package rasdaemon is unpacked in");
    const std::vector<std::string> parts = {"archives", "roads", "latency", "start", "idle", "size"};
    app.add_option("PART", only, "What to measure; everything, unless told otherwise")
        ->check(CLI::IsMember(parts));
    CLI11_PARSE(app, argc, argv);

    // All that is compared has the priority that the daemon gives itself, where this user may.
    setpriority(PRIO_PROCESS, 0, -20);
    bench::require_phone();
    const auto wanted = [&](const char* part) {
        return only.empty() || std::find(only.begin(), only.end(), part) != only.end();
    };
    if (wanted("archives")) {
        bench::measure_archives(rounds);
    }
    if (wanted("roads")) {
        bench::measure_roads(rounds);
    }
    if (wanted("latency")) {
        bench::measure_latency(rounds);
    }
    if (wanted("start")) {
        bench::measure_start(rounds);
    }
    if (wanted("idle")) {
        bench::measure_idle(idle, rasdaemon);
        bench::measure_memory();
    }
    if (wanted("size")) {
        bench::measure_size(arm_program, rasdaemon);
    }
    bench::print_table();
} catch (const std::exception& problem) {
    bench::print_table();  // as far as it came
    fprintf(stderr, "bench: %s\n", problem.what());
    return 1;
}
