// The load test: the daemon that ships, in a phone, under errors of all its clients at once. What the driver
// hands over must arrive once, whole and in order; descriptors, memory and archives must stay bounded.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <regex>
#include <thread>

#include <CLI/CLI.hpp>

#include "actions/log_collection_actions.h"
#include "bench/daemon.h"
#include "bench/measure.h"
#include "clients/client_table.h"
#include "clients/generic_dump.h"
#include "output/output_dir.h"
#include "platform/file_time.h"
#include "tests/recorded_report.h"

namespace {

using bench::ask;
using bench::clock;
using bench::Usage;
using std::to_string;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr char LOG_DIR[] = DMD_LOG_DIR "/";
constexpr long long ARCHIVES_LIMIT = 10 * 1024 * 1024;
const int CLIENTS = default_clients.count;
constexpr int REPORTERS = 4;
// Bytes of reports that have not arrived, heads included; about 20 reports of each client. The daemon comes
// round to the record file that is being read when three more, of 512 KiB, are unread: never.
constexpr size_t UNREAD_MAX = 1280 * 1024;
constexpr size_t HEAD_MAX = 1000;
constexpr int NUMBERS = 10;  // of a client, in turn: archives of one number and second share a name
constexpr int WARM_UP = 20;  // reports of each client before descriptors and memory are compared
constexpr long BUSY_DESCRIPTORS = 16;
constexpr long MEMORY_GROWTH_KIB = 256;
constexpr size_t LINES_KEPT = 40;
constexpr seconds STUCK(600);  // without a word: twice as long as the daemon lets one of its commands run

// What a daemon that is well logs; at last what it logs where an archive's name is taken, and where an action
// removes what only a debug build has.
const std::regex GOOD_LINE(
    R"(E/DMD: \[M/(main\]|dmd_client_init\] default-client total: \d+ ret = 0|parse_config\]|)"
    R"((listen|poll)_client_init\] (lclient .* triggers num-10|.*find client)|poll_server\] dmd poll no |)"
    R"(dmd_command_sever_init\] .*success|dmd_(is|get)_key_device\] (key|it's)|dmd_key_event_.* start!|)"
    R"(listen_server\] (Enter select|.* reported|action-0)|\w+\] \w+ finish dump|secure_system\]|)"
    R"(dmd_direct_output\] (output change to|dmd_tar_cmd:)|write_file_to_tarball\] Removing|)"
    R"(recursive_action\] Ignore archive the file (/data/android_logs|/data/kvdx_logs/ch|splash2)|)"
    R"(check_compress_file\] delete .*, result 0$|dmd_file_upload\] tag:DMD-unit).*|)"
    R"(gzip: .* already exists.*|rm: cannot remove '/data/zc8830dump.log'.*)");

// The clients' reports. The reporters and the follower share them.
std::mutex flow;               // guards what follows
std::condition_variable room;  // something has arrived
std::vector<int> reported(CLIENTS), arrived(CLIENTS);
int arrivals;
size_t unread_bytes;

// The dump archives by what the daemon says of them: each one's size in bytes and its time.
std::map<std::string, std::pair<long long, file_time>> archives;
long long archive_bytes, most_archive_bytes;
int deleted_now, deleted, shared_now, shared;  // by, and since, the last retention pass; in all

int commercial_records;  // announced

bool commercial;
bool daemon_waits;                                // its last word was that it waits for errors
thread_local std::deque<std::string> last_lines;  // of the daemon's log, where it is read

[[noreturn]] void fail(const std::string& why) {
    for (const std::string& line : last_lines) {
        fprintf(stderr, "\n%s", line.c_str());
    }
    fprintf(stderr, "\nsoak: FAILED: %s\n", why.c_str());
    _exit(1);  // the phone ends, and everything in it
}

void check(bool holds, const std::string& otherwise) {
    if (!holds) {
        fail(otherwise);
    }
}

// What a client reports at its turn: a few bytes up to 30,000, or as many as the daemon reads of the client.
std::string text_of(int client, int turn) {
    std::minstd_rand random(static_cast<unsigned>(client * 1000003 + turn + 1));
    random.discard(3);
    const size_t largest = std::min<size_t>(default_clients[client].buffer_size, 30000);
    const size_t scale = std::min(largest, size_t{16} << random() % 12);
    const size_t size = turn % 16 == 7 ? largest : random() % scale;
    std::string text = to_string(client) + ":" + to_string(turn) + "\n";
    while (text.size() < size) {
        text += static_cast<char>('0' + (random() >> 8) % 64);
    }
    return text;
}

int number_of(int client, int turn) {
    return 20000 + client * NUMBERS + turn % NUMBERS;
}

std::string device_of(int client) {
    return "unit" + to_string(client);
}

void configure() {
    std::vector<bench::Section> sections;
    for (int client = 0; client < CLIENTS; ++client) {
        const auto& dump = default_clients[client].dump;
        // Of its own actions the first that only reads and reports its text; else the first.
        const client_dump_operation plain[] = {dsm_dump_error, sensorhub_dump_error_no_image};
        const auto* const slot = std::find_first_of(dump, dump + SLOT_COUNT, plain, plain + 2);
        sections.push_back({default_clients[client].name, device_of(client), number_of(client, 0), NUMBERS,
                            static_cast<int>(slot - dump) % SLOT_COUNT});
    }
    bench::write_configuration(sections);
}

// Reports for the clients that are the reporter's, one of each in turn.
void report(int reporter, int count, clock::time_point end, std::atomic<int>* at_work) try {
    for (int i = 0; i < count && clock::now() < end; ++i) {
        for (int client = reporter; client < CLIENTS; client += REPORTERS) {
            std::unique_lock<std::mutex> lock(flow);
            if (!room.wait_until(lock, end, [] { return unread_bytes < UNREAD_MAX; })) {
                break;
            }
            const int turn = reported[client]++;
            const std::string text = text_of(client, turn);
            unread_bytes += text.size() + HEAD_MAX;
            lock.unlock();
            bench::report(default_clients[client].name, number_of(client, turn), text);
        }
    }
    --*at_work;
} catch (const std::exception& problem) {
    fail(problem.what());
}

// The client that has the device; CLIENTS when none has it.
int client_of(std::string_view device) {
    int client = 0;
    while (client < CLIENTS && device != device_of(client)) {
        ++client;
    }
    return client;
}

// Reads on in the current record file and takes the reports that are whole there; with `last` that is all
// that it gets, and the next file of the ring becomes the current one.
void follow_record(bool last) {
    static int index = 0;
    static std::streamoff offset = 0;
    static std::string unread;
    std::ifstream file(LOG_DIR + ("dmd_record_" + to_string(index) + ".txt"), std::ios::binary);
    const size_t before = unread.size();
    unread.append(std::istreambuf_iterator<char>(file.seekg(offset)), {});
    offset += static_cast<std::streamoff>(unread.size() - before);
    std::string_view rest = unread;
    size_t taken = 0;
    while (!rest.empty()) {
        const recorded_report report = take_report(&rest);
        if (!report.has_full_head && !last && rest.empty()) {
            break;  // its head is on its way
        }
        const std::string shown(unread, taken, 200);
        check(report.has_full_head, "a report begins with " + shown);
        const int client = client_of(report.device);
        check(client < CLIENTS, "no client has the device of " + shown);
        const std::string text = text_of(client, arrived[client]);
        if (report.text != text) {
            // It may be on its way, unless another one follows.
            check(!last && rest.empty(),
                  default_clients[client].name + (": not the " + to_string(text.size())) + " bytes " +
                      text.substr(0, 20) + ", but " + to_string(report.text.size()) + " bytes: " + shown);
            break;
        }
        const size_t size = unread.size() - rest.size() - taken;
        check(report.error_no == to_string(number_of(client, arrived[client])) &&
                  report.test_switch == "on" && size <= text.size() + HEAD_MAX,
              "the head of " + text.substr(0, 20) + " is " + shown);
        const std::lock_guard<std::mutex> lock(flow);
        ++arrivals;
        ++arrived[client];
        unread_bytes -= text.size() + HEAD_MAX;
        room.notify_all();
        taken += size;
    }
    unread.erase(0, taken);
    if (last) {
        index = (index + 1) % 4;
        offset = 0;
    }
}

void follow_archives(const std::string& line) {
    char path[256];
    const auto said = [&](const char* what) { return sscanf(line.c_str(), what, path) == 1; };
    if (said("E/DMD: [M/dmd_direct_output] dmd_tar_cmd:dmd_tar -cf %255s")) {  // after its retention pass
        check(archive_bytes <= ARCHIVES_LIMIT || deleted_now == 1,
              path + std::string(": no archive was deleted"));
        deleted += std::exchange(deleted_now, 0);
        shared += shared_now = static_cast<int>(archives.count(path + std::string(".gz")));
    } else if (said("E/DMD: [M/check_compress_file] delete %255[^,]")) {
        check(archives.count(path) == 1, path + std::string(" deleted, of which nothing was said"));
        const auto [size, time] = archives[path];
        const bool oldest = std::none_of(archives.begin(), archives.end(), [&, t = time](const auto& other) {
            return is_later(t, other.second.second);
        });
        // A name that is taken leaves two files for a moment: the archive counts twice then.
        check(oldest && ++deleted_now == 1 && archive_bytes + shared_now * size > ARCHIVES_LIMIT,
              path + std::string(" deleted, of ") + to_string(archive_bytes) + " bytes");
        archive_bytes -= size;
        archives.erase(path);
    } else if (said("E/DMD: [M/dmd_file_upload] tag:%*[^,], cmd_line:archive -i %255s")) {
        commercial_records += strstr(path, "/dmd_commercial_record.txt") != nullptr ? 1 : 0;
        if (strstr(path, "/dmd_dump_") == nullptr || archives.count(path) > 0) {
            return;
        }
        struct stat status = {};
        check(stat(path, &status) == 0, std::string("the follower is too slow for ") + path);
        archives[path] = {status.st_size, modified_time(status)};
        archive_bytes += status.st_size;
        most_archive_bytes = std::max(most_archive_bytes, archive_bytes);
    }
}

// Takes all that the daemon has said; waits for its next word no longer than that.
void follow_daemon(bench::Daemon* daemon, milliseconds patience) {
    static clock::time_point last_word = clock::now();
    for (auto line = daemon->next_line(patience); line; line = daemon->next_line(milliseconds(0))) {
        last_word = clock::now();
        last_lines.push_back(*line);
        if (last_lines.size() > LINES_KEPT) {
            last_lines.pop_front();
        }
        check(std::regex_match(*line, GOOD_LINE), "the daemon logs: " + *line);
        daemon_waits = line->find("] Enter select") != std::string::npos;
        if (line->find("] output change to new file") != std::string::npos) {
            follow_record(true);
        }
        follow_archives(*line);
    }
    check(clock::now() - last_word < STUCK, "the daemon hangs");
    follow_record(false);
}

// Whether it has dealt with all errors: what was handed over before its last word has been written by then.
bool is_idle(bench::Daemon* daemon) {
    for (const dmd_client_info& client : default_clients) {
        if (!daemon_waits || ask({"pending", client.name}) != "0") {
            return false;
        }
    }
    follow_daemon(daemon, milliseconds(0));
    return daemon_waits;
}

// Reports up to `count` errors of each client before `end`, and follows the daemon until it has dealt with
// them. `idle` is what it took when it was idle, once that is known.
void run(bench::Daemon* daemon, int count, clock::time_point end, int wanted, const Usage* idle) {
    static const clock::time_point start = clock::now();
    static clock::time_point sampled, shown;
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    std::atomic<int> at_work{REPORTERS};
    for (int i = 0; i < REPORTERS; ++i) {
        std::thread(report, i, count, end, &at_work).detach();
    }
    while (at_work > 0 || !is_idle(daemon)) {
        follow_daemon(daemon, milliseconds(20));
        const auto now = clock::now();
        if (now - sampled < seconds(1)) {
            continue;
        }
        sampled = now;
        const Usage busy = bench::usage_of(*daemon);
        check(idle == nullptr || busy.descriptors <= idle->descriptors + BUSY_DESCRIPTORS,
              to_string(busy.descriptors) + " descriptors are open");
        if (terminal || now - shown >= seconds(10)) {
            shown = now;
            printf("%s%4ld s: %d of %d reports, %ld descriptors, %ld KiB, %lld bytes of archives %s",
                   terminal ? "\r" : "", static_cast<long>((now - start) / seconds(1)), arrivals, wanted,
                   busy.descriptors, busy.resident, archive_bytes, terminal ? "\033[K" : "\n");
            fflush(stdout);
        }
    }
}

}  // namespace

int main(int argc, char** argv) try {
    int reports = 10000, limit = 700;
    CLI::App app("Puts the daemon under load, in a phone: phone run -- soak", "soak");
    app.add_option("--reports", reports, "Reports of all clients together")->check(CLI::PositiveNumber);
    app.add_option("--seconds", limit, "When no more is reported")->check(CLI::PositiveNumber);
    app.add_flag("--commercial", commercial, "On a commercial build");
    CLI11_PARSE(app, argc, argv);
    configure();
    bench::run_command(
        "mkdir -p /data/android_logs /data/kvdx_logs/dmd_log &&"
        "head -c 200000 /dev/urandom > /data/android_logs/kmsgcat-log");
    bench::Daemon daemon(commercial);
    const auto start = clock::now(), end = start + seconds(limit);
    const int count = (reports + CLIENTS - 1) / CLIENTS, warm = std::min(WARM_UP, count);
    run(&daemon, warm, end, reports, nullptr);
    const Usage before = bench::usage_of(daemon);
    run(&daemon, count - warm, end, reports, &before);
    const int in_time = arrivals;
    const double took = std::chrono::duration<double>(clock::now() - start).count();
    // One more of each client, in a second whose names are free: after it nothing uncompressed is left.
    std::this_thread::sleep_until(std::chrono::system_clock::from_time_t(time(nullptr) + 1));
    run(&daemon, 1, clock::now() + std::chrono::hours(24), reports, &before);
    const Usage after = bench::usage_of(daemon);
    printf("\nreports      %d of %d in time, %.1f per second%s\n", in_time, count * CLIENTS, in_time / took,
           in_time < count * CLIENTS ? "; ended early" : "");
    printf("descriptors  %ld idle after %d reports, %ld at the end\n", before.descriptors, warm * CLIENTS,
           after.descriptors);
    printf("memory       %ld KiB, %ld private; %ld and %ld at the end\n", before.resident, before.own,
           after.resident, after.own);
    printf("archives     %lld bytes, at most %lld; %d deleted, %d of a taken name\n", archive_bytes,
           most_archive_bytes, deleted, shared);
    fflush(stdout);

    follow_record(true);  // nothing follows the last text
    int numbers = 0;
    for (int i = 0; i < CLIENTS; ++i) {
        numbers += std::min(NUMBERS, reported[i]);
        const std::string handed = ask({"handed", default_clients[i].name});
        check(handed == to_string(reported[i]) && handed == to_string(arrived[i]),
              default_clients[i].name + (": handed over " + handed) + ", arrived " + to_string(arrived[i]));
    }
    for (const auto& entry : std::filesystem::directory_iterator(LOG_DIR)) {
        const std::string name = entry.path().filename();
        check(archives.erase(entry.path()) == 1 || name.find("dmd_record_") == 0 || name == "apr_info.txt",
              name + " is left");
    }
    check(archives.empty() && (most_archive_bytes == 0) == commercial,
          "archives are missing, or there are some");
    const char look[] = "cd " DMD_LOG_DIR
                        " && for archive in dmd_dump_*.tar.gz; do"
                        " test -e $archive || continue; gzip -t $archive &&"
                        " test $(tar -tzf $archive | grep -c 'dmd_record_.[.]txt$\\|kmsgcat-log$') = 2 ||"
                        " exit 1; done";
    check(system(look) == 0, "an archive is not whole");
    check(commercial_records == (commercial ? numbers : 0),
          to_string(commercial_records) + " commercial records of " + to_string(numbers) + " numbers");
    check(after.threads == (commercial ? 4 : 5), to_string(after.threads) + " threads are alive");
    check(after.descriptors == before.descriptors, "descriptors stay open");
    check(after.own - before.own < MEMORY_GROWTH_KIB, "memory has grown");
} catch (const std::exception& problem) {
    fail(problem.what());
}
