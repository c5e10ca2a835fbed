// The load test: the daemon that ships, in a phone, under errors of all its clients at once. What the driver
// hands over must arrive once, whole and in order; descriptors, memory and archives must stay bounded.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
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
#include "clients/client_table.h"
#include "clients/generic_dump.h"
#include "emulator/control_client.h"
#include "output/output_dir.h"
#include "platform/file_time.h"

namespace {

using std::to_string;
using std::chrono::seconds;
using clock = std::chrono::steady_clock;

constexpr char LOG_DIR[] = DMD_LOG_DIR "/";
constexpr long long ARCHIVES_LIMIT = 10 * 1024 * 1024;
constexpr int CLIENTS = CLIENT_TABLE_ROWS;
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
    R"(E/DMD: \[M/(main\]|dmd_client_init\] default-client total: 46 ret = 0|parse_config\]|)"
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
int reported[CLIENTS], arrived[CLIENTS], arrivals;
size_t unread_bytes;

// The dump archives by what the daemon says of them: each one's size in bytes and its time.
std::map<std::string, std::pair<long long, file_time>> archives;
long long archive_bytes, most_archive_bytes;
int deleted_now, deleted, shared_now, shared;  // by, and since, the last retention pass; in all

int commercial_records;  // announced

bool commercial;
pid_t daemon_pid;
int log_pipe;
bool daemon_waits;                                // its last word was that it waits for errors
thread_local std::deque<std::string> last_lines;  // of the daemon's log, where it is read

void check(bool holds, const std::string& otherwise) {
    if (!holds) {
        for (const std::string& line : last_lines) {
            fprintf(stderr, "\n%s", line.c_str());
        }
        fprintf(stderr, "\nsoak: FAILED: %s\n", otherwise.c_str());
        _exit(1);  // the phone ends, and everything in it
    }
}

std::string ask(const std::vector<std::string>& words) {
    std::string answer;
    check(phone::request("", words, &answer), words[0] + ": " + answer);
    return answer;
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

std::string number_of(int client, int turn) {
    return to_string(20000 + client * NUMBERS + turn % NUMBERS);
}

void write_configuration() {
    std::ofstream config("/system/etc/device_state_monitor.conf");
    for (int client = 0; client < CLIENTS; ++client) {
        const auto& dump = default_clients[client].dump;
        const std::string name = default_clients[client].name;
        // Of its own actions the first that only reads and reports its text; else the first.
        const client_dump_operation plain[] = {dsm_dump_error, sensorhub_dump_error_no_image};
        const auto slot = std::find_first_of(dump, dump + SLOT_COUNT, plain, plain + 2) - dump;
        config << "[" << name << "]\nalgo_type listen\nclient_name " << name << "\ndevice_name unit" << client
               << "\nnum_triggers " << NUMBERS << "\n";
        for (int turn = 0; turn < NUMBERS; ++turn) {
            config << "error_no " << number_of(client, turn) << "\nrunning_test_switch on\naction " << name
                   << "+" << slot % SLOT_COUNT << "\n";
        }
    }
}

// Reports for the clients that are the reporter's, one of each in turn.
void report(int reporter, int count, clock::time_point end, std::atomic<int>* at_work) {
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
            ask({"report", default_clients[client].name, number_of(client, turn), text});
        }
    }
    --*at_work;
}

// Reads on in the current record file and takes the reports that are whole there; with `last` that is all
// that it gets, and the next file of the ring becomes the current one.
void follow_record(bool last) {
    const std::string banner = "\n========Device Bugreport========\n[Date]:", device = "\n[Device]:unit";
    static int index = 0;
    static std::streamoff offset = 0;
    static std::string unread;
    std::ifstream file(LOG_DIR + ("dmd_record_" + to_string(index) + ".txt"), std::ios::binary);
    const size_t before = unread.size();
    unread.append(std::istreambuf_iterator<char>(file.seekg(offset)), {});
    offset += static_cast<std::streamoff>(unread.size() - before);
    size_t at = 0;
    for (size_t content; (content = unread.find("[Content]:\n", at)) != std::string::npos;) {
        content += strlen("[Content]:\n");
        const std::string head = unread.substr(at, content - at);
        const size_t unit = head.find(device);
        check(head.find(banner) == 0 && unit != std::string::npos, "a report begins with" + head);
        const int client = atoi(&head[unit + device.size()]) % CLIENTS;
        const std::string text = text_of(client, arrived[client]);
        if (unread.compare(content, text.size(), text) != 0) {
            // It may be on its way, unless another one follows.
            const size_t next = std::min(unread.find(banner, content), unread.size());
            check(!last && next == unread.size(),
                  default_clients[client].name + (": not the " + to_string(text.size())) + " bytes " +
                      text.substr(0, 20) + ", but " + to_string(next - content) + " bytes " +
                      unread.substr(content, 20));
            break;
        }
        check(
            head.size() <= HEAD_MAX &&
                head.find(device + to_string(client) + "\n[Error no]:" + number_of(client, arrived[client]) +
                          "\n[Runing_test_switch]:on\n[Temperature]:null\n[Process]:\n") == unit,
            "the head of " + text.substr(0, 20) + " is" + head);
        const std::lock_guard<std::mutex> lock(flow);
        ++arrivals;
        ++arrived[client];
        unread_bytes -= text.size() + HEAD_MAX;
        room.notify_all();
        at = content + text.size();
    }
    unread.erase(0, at);
    if (last) {
        check(unread.empty(), "a record ends with " + unread.substr(0, 60));
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

void follow_daemon() {
    static std::string log;
    static clock::time_point last_word = clock::now();
    char piece[65536];
    ssize_t got;
    while ((got = read(log_pipe, piece, sizeof piece)) > 0) {
        last_word = clock::now();
        log.append(piece, static_cast<size_t>(got));
        for (size_t end; (end = log.find('\n')) != std::string::npos; log.erase(0, end + 1)) {
            const std::string line = log.substr(0, end);
            last_lines.push_back(line);
            if (last_lines.size() > LINES_KEPT) {
                last_lines.pop_front();
            }
            check(std::regex_match(line, GOOD_LINE), "the daemon logs: " + line);
            daemon_waits = line.find("] Enter select") != std::string::npos;
            if (line.find("] output change to new file") != std::string::npos) {
                follow_record(true);
            }
            follow_archives(line);
        }
    }
    check(got != 0, "the daemon is dead");
    check(clock::now() - last_word < STUCK, "the daemon hangs");
    follow_record(false);
}

// Whether it has dealt with all errors: what was handed over before its last word has been written by then.
bool is_idle() {
    for (const dmd_client_info& client : default_clients) {
        if (!daemon_waits || ask({"pending", client.name}) != "0") {
            return false;
        }
    }
    follow_daemon();
    return daemon_waits;
}

// What the daemon has and takes; memory in KiB.
struct Usage {
    long descriptors, threads, resident = 0, own = 0;
    Usage() {
        const std::string process = "/.phone/proc/" + to_string(daemon_pid);
        descriptors = std::distance(std::filesystem::directory_iterator(process + "/fd"), {});
        threads = std::distance(std::filesystem::directory_iterator(process + "/task"), {});
        std::ifstream memory(process + "/smaps_rollup");
        for (std::string line; std::getline(memory, line);) {
            const bool mine = line.find("Private_") == 0;
            (mine ? own : resident) += mine || line.find("Rss:") == 0 ? atol(&line[line.find(':') + 1]) : 0;
        }
    }
};

// Reports up to `count` errors of each client before `end`, and follows the daemon until it has dealt with
// them. `idle` is what it took when it was idle, once that is known.
void run(int count, clock::time_point end, int wanted, const Usage* idle) {
    static const clock::time_point start = clock::now();
    static clock::time_point sampled, shown;
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    std::atomic<int> at_work{REPORTERS};
    for (int i = 0; i < REPORTERS; ++i) {
        std::thread(report, i, count, end, &at_work).detach();
    }
    while (at_work > 0 || !is_idle()) {
        pollfd ready = {log_pipe, POLLIN, 0};
        poll(&ready, 1, 20);
        follow_daemon();
        const auto now = clock::now();
        if (now - sampled < seconds(1)) {
            continue;
        }
        sampled = now;
        const Usage busy;
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
    app.add_flag("--commercial", commercial, "The phone is a commercial build");
    CLI11_PARSE(app, argc, argv);
    write_configuration();
    check(system("mkdir -p /data/android_logs /data/kvdx_logs/dmd_log &&"
                 "head -c 200000 /dev/urandom > /data/android_logs/kmsgcat-log") == 0,
          "no log to pack");
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "dmd";
    FILE* const log = popen(("echo $$; exec " + program + " 2>&1").c_str(), "r");
    setvbuf(log, nullptr, _IONBF, 0);  // what follows the number is read elsewhere
    check(fscanf(log, "%d", &daemon_pid) == 1, "the daemon does not start");
    log_pipe = fileno(log);
    fcntl(log_pipe, F_SETFL, O_NONBLOCK);

    const auto start = clock::now(), end = start + seconds(limit);
    const int count = (reports + CLIENTS - 1) / CLIENTS, warm = std::min(WARM_UP, count);
    run(warm, end, reports, nullptr);
    const Usage before;
    run(count - warm, end, reports, &before);
    const int in_time = arrivals;
    const double took = std::chrono::duration<double>(clock::now() - start).count();
    // One more of each client, in a second whose names are free: after it nothing uncompressed is left.
    std::this_thread::sleep_until(std::chrono::system_clock::from_time_t(time(nullptr) + 1));
    run(1, clock::now() + std::chrono::hours(24), reports, &before);
    const Usage after;
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
    fprintf(stderr, "\nsoak: FAILED: %s\n", problem.what());
    _exit(1);
}
