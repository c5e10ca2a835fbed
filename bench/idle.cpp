// What the waiting daemon takes and holds.
#include <unistd.h>

#include "bench/daemon.h"
#include "bench/measure.h"
#include "bench/measurements.h"
#include "clients/client_table.h"

namespace bench {

namespace {

constexpr long PRIVATE_GOAL_KIB = 512;
constexpr long THREADS = 5;  // with the main thread
constexpr int TRIGGERS = 5;  // of each client

std::string kib(long figure) {
    return to_string(figure) + " KiB";
}

}  // namespace

void measure_idle(unsigned seconds) {
    std::vector<Section> sections;
    for (const dmd_client_info& client : default_clients) {
        sections.push_back({client.name, "unit", ERROR_NUMBER, TRIGGERS});
    }
    write_configuration(sections);
    Daemon daemon(false);
    daemon.wait_until_ready();
    sleep(1);
    const Usage before = usage_of(daemon);
    sleep(seconds);
    const Usage after = usage_of(daemon);

    const std::string idle = "idle with " + to_string(TRIGGERS) + " triggers a client",
                      while_idle = idle + ", " + to_string(seconds) + " s: ";
    const long switches = after.switches - before.switches;
    const double processor = after.processor - before.processor;
    add_row({while_idle + "context switches", to_string(switches), "", "", "", "0", switches == 0});
    add_row({while_idle + "processor time", milliseconds(processor), "", "", "", "0", processor == 0});
    add_row({idle + ": threads", to_string(after.threads), "", "", "", to_string(THREADS),
             after.threads == THREADS});
    add_row({idle + ": resident memory", kib(after.resident), "", "", "", ""});
    add_row({idle + ": proportional memory", kib(after.proportional), "", "", "", ""});
    add_row({idle + ": private memory", kib(after.own), "", "", "", "under " + kib(PRIVATE_GOAL_KIB),
             after.own < PRIVATE_GOAL_KIB});
}

}  // namespace bench
