// From a driver's report to what stands on the disk.
#include <signal.h>

#include <filesystem>
#include <random>

#include "bench/daemon.h"
#include "bench/measure.h"
#include "bench/measurements.h"
#include "output/output_dir.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

constexpr double DEBUG_GOAL = 1.15, COMMERCIAL_GOAL = 1.25;
constexpr size_t LOG_SIZE = 1024 * 1024;
constexpr int REPORTS = 300;                 // of a measurement of reports a second
constexpr unsigned READING_PAUSE_US = 3000;  // far less than they take
constexpr char LOGS[] = "/data/android_logs";
constexpr char PEER_FOLDER[] = "/data/floor";

// What a log holds: lines that have much in common, and some numbers.
void make_log(const std::string& path, unsigned seed) {
    static const char* const said[] = {"touch: irq 17 without data",
                                       "battery: level %u, voltage %u mV",
                                       "wlan: beacon lost, rssi %u",
                                       "binder: %u transaction failed, size %u-%u",
                                       "lowmemorykiller: free memory %u kB, cache %u kB",
                                       "mmc0: retune %u"};
    std::minstd_rand random(seed);
    std::string text;
    for (unsigned time = 0; text.size() < LOG_SIZE;) {
        time += random() % 100000;
        char line[256];
        snprintf(line, sizeof line, "<%u>[%5u.%06u] ", static_cast<unsigned>(random() % 7), time / 1000000,
                 time % 1000000);
        text += line;
        snprintf(line, sizeof line, said[random() % 6], static_cast<unsigned>(random() % 5000),
                 static_cast<unsigned>(random() % 5000), static_cast<unsigned>(random() % 100));
        text += line + std::string("\n");
    }
    text.resize(LOG_SIZE);
    write_file(path, text);
}

std::vector<std::string> make_logs() {
    fs::create_directories(LOGS);
    std::vector<std::string> paths;
    for (const char* const name : {"kmsgcat-log", "kmsgcat-log.1", "applogcat-log.1", "applogcat-log",
                                   "wakelocks-log.1", "wakelocks-log", "rillogcat-log.1", "rillogcat-log"}) {
        paths.push_back(LOGS + std::string("/") + name);
        make_log(paths.back(), static_cast<unsigned>(paths.size()));
    }
    return paths;
}

void remove_archives() {
    run_command("rm -f " DMD_LOG_DIR "/dmd_dump_*");
}

void measure_debug_road(int rounds) {
    const std::vector<std::string> logs = make_logs();
    const std::string text(1000, 'x');
    fs::create_directories(PEER_FOLDER);
    const std::string peer = PEER_FOLDER, archive = peer + "/dump.tar";
    write_file(peer + "/text", text);
    std::vector<std::string> words = {build_folder() + "road_floor.sh", peer + "/text", peer + "/record",
                                      archive};
    words.insert(words.end(), logs.begin(), logs.end());
    for (size_t i = 1; i < words.size(); ++i) {
        words[i].erase(0, 1);  // from here, so that tar has nothing to say about a "/"
    }

    Daemon daemon(false);
    daemon.wait_until_ready();
    const auto taken = compare(rounds, {[&] {
                                            remove_archives();
                                            const auto start = clock::now();
                                            report(CLIENT, ERROR_NUMBER, text);
                                            // The first line behind gzip and the flush.
                                            const auto end = daemon.wait_for({"[M/dmd_file_upload] tag:"});
                                            daemon.wait_for({WAITS});
                                            return std::chrono::duration<double>(end - start).count();
                                        },
                                        [&] {
                                            fs::remove(archive + ".gz");
                                            return time_program(words);
                                        }});
    add_times("whole road, debug build, logs of 8 × 1 MiB", taken[0].median,
              "script of `cat`, `sync`, `tar`, `gzip`", taken[1], DEBUG_GOAL);
    run_command("tar -xzOf " DMD_LOG_DIR
                "/dmd_dump_20000_*.tar.gz data/android_logs > ours && test -s ours && "
                "tar -xzOf " +
                archive + ".gz data/android_logs | cmp - ours");
}

void measure_commercial_road(int rounds, size_t text_size) {
    const std::string text(text_size, 'x');
    fs::create_directories(PEER_FOLDER);
    Daemon daemon(true, READING_PAUSE_US);
    daemon.wait_until_ready();
    report(CLIENT, ERROR_NUMBER, text);  // the only one of the day that is a commercial record too
    daemon.wait_for({WAITS});
    const auto taken =
        compare(rounds, {[&] {
                             kill(daemon.pid(), SIGSTOP);  // all wait in the driver when it begins
                             for (int i = 0; i < REPORTS; ++i) {
                                 report(CLIENT, ERROR_NUMBER, text);
                             }
                             const auto start = clock::now();
                             kill(daemon.pid(), SIGCONT);
                             const auto end = daemon.wait_for(std::vector<std::string>(REPORTS, WAITS));
                             return std::chrono::duration<double>(end - start).count() / REPORTS;
                         },
                         [&] {
                             return time_program({build_folder() + "report_floor", PEER_FOLDER,
                                                  to_string(REPORTS), to_string(text_size)}) /
                                    REPORTS;
                         }});
    add_row({"whole road, commercial build, texts of " + to_string(text_size) + " bytes",
             decimal(1 / taken[0].median, 0) + "/s", "floor", decimal(1 / taken[1].median, 0) + "/s",
             ratio_of(taken[1]), "at most " + decimal(COMMERCIAL_GOAL, 2),
             taken[1].ratio <= COMMERCIAL_GOAL});
}

}  // namespace

void measure_roads(int rounds) {
    fs::current_path("/");
    write_configuration({{CLIENT, "unit", ERROR_NUMBER, 1}});
    measure_debug_road(rounds);
    measure_commercial_road(rounds, 1024);
    measure_commercial_road(rounds, 30000);
    remove_archives();
}

}  // namespace bench
