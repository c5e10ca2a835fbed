// The measurements of docs/performance.md, in a phone: phone run -- dmd_bench. The table goes to standard
// output.
#include <sys/resource.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <map>

#include <CLI/CLI.hpp>

#include "bench/daemon.h"
#include "bench/measure.h"
#include "bench/measurements.h"

int main(int argc, char** argv) try {
    int rounds = 15;
    unsigned idle = 60;
    const std::map<std::string, std::function<void()>> parts = {
        {"archives", [&] { bench::measure_archives(rounds); }},
        {"roads", [&] { bench::measure_roads(rounds); }},
        {"latency", [&] { bench::measure_latency(rounds); }},
        {"idle", [&] { bench::measure_idle(idle); }},
    };
    std::vector<std::string> wanted = {"archives", "roads", "latency", "idle"};
    CLI::App app("Measures the daemon beside its peers, in a phone: phone run -- dmd_bench", "dmd_bench");
    app.add_option("--rounds", rounds, "Runs of each measurement")->check(CLI::PositiveNumber);
    app.add_option("--idle", idle, "Seconds for which the daemon is left alone")->check(CLI::PositiveNumber);
    app.add_option("PART", wanted, "What to measure; everything, unless told otherwise")
        ->check(CLI::IsMember(wanted));
    CLI11_PARSE(app, argc, argv);

    // All that is compared has the priority that the daemon gives itself, where this user may.
    setpriority(PRIO_PROCESS, 0, -20);
    // Outside a phone this throws: what is measured makes and removes files of fixed names.
    bench::ask({"property", "dev.bootcomplete"});
    for (const std::string& part : wanted) {
        parts.at(part)();
    }
    bench::print_table();
} catch (const std::exception& problem) {
    bench::print_table();  // as far as it came
    fprintf(stderr, "bench: %s\n", problem.what());
    return 1;
}
