// All four of the daemon's threads at once on one client (errors, polled states, messages and keys) beside
// every kind of dump on its own client. Nothing is lost, and no report is mixed with another's.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>

#include "actions/touch_panel_actions.h"
#include "clients/dispatch.h"
#include "clients/dsm_device.h"
#include "clients/generic_dump.h"
#include "clients/registry.h"
#include "output/compressed_dump.h"
#include "servers/listen_server.h"
#include "servers/poll_server.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"
#include "tests/sanitized.h"
#include "triggers/command_server.h"
#include "triggers/key_detector.h"

namespace {

constexpr int LISTEN_ERROR = 20002;
constexpr int POLL_STATE = 7;
constexpr int KEY_ERROR = 20005;
constexpr int ROUND = 100;  // each dump is made twice, and then has an error number greater by this

// The dumps that are not generic.
const struct {
    const char* client;
    int slot;
    int error_no;
    const char* file;   // in the archive; null without one
    bool shares_files;  // with others, so one thread makes those
} OWN_DUMPS[] = {
    {"dsm_audio", 4, 41000, "data/mediadump.log", true},
    {"dsm_audio", 5, 41001, "data/ruvo_logs/memorydump/m/hifi3.bin", true},
    {"dsm_audio", 6, 41002, "data/ruvo_logs/memorydump/m/zc8830_reg.bin", true},
    {"dsm_anc_hs", 0, 41003, "data/zc8830dump.log", true},
    {"dsm_maxim_smartpa", 1, 41004, "data/zc8830dump.log", true},
    {"dsm_sensorhub", 0, 41005, "dmd_record_", false},
    {"dsm_sensorhub", 1, 41006, "dmd_record_", false},
    {"dsm_charger", 0, 41007, "data/android_logs/charge-log", false},
    {"dsm_recovery", 0, 41008, "splash2/recovery_log", false},
    {"dsm_apcp", 0, 20834, "data/tombstones/b", false},
    {"dsm_charge_monitor", 0, 41009, "data/kvdx_logs/charge_monitor/a", false},
    {"dsm_power_key", 1, 41010, nullptr, false},
};

std::string listen_text(int i) {
    return "error " + std::to_string(i) + std::string(900, static_cast<char>('a' + i % 26)) + "\n";
}

std::string forced_text(int error_no) {
    return "forced dump of error " + std::to_string(error_no) + " of dsm_tp\n";
}

// The driver's text in each report of all record files, by error number; under 0 what is no whole report.
std::map<int, std::vector<std::string>> contents() {
    std::map<int, std::vector<std::string>> found;
    for (const std::string& report : reports_on_disk()) {
        const size_t number = report.find("\n[Error no]:");
        size_t process = report.find("\n[Runing_test_switch]:on\n[Temperature]:null\n[Process]:\n");
        process = std::min(process, report.find("\n[Runing_test_switch]:on\n[Content]:\n"));
        const size_t content = report.find("\n[Content]:\n");
        if (report[0] == '\n' && number < process && process < content && content != std::string::npos) {
            found[atoi(report.c_str() + number + 12)].push_back(report.substr(content + 12));
        } else {
            found[0].push_back(report);
        }
    }
    return found;
}

// Presses a combination that asks for a dump of dsm_tp, and waits until it was taken.
bool press_combination(const LogCapture& log, int dispatched) {
    for (const auto& [code, value] : {std::pair("114", "1"), std::pair("115", "1"), std::pair("115", "0"),
                                      std::pair("115", "1"), std::pair("115", "0"), std::pair("114", "0")}) {
        phone_do({"key", "event1", code, value});
    }
    return log.wait_for("dmd_key_dispatch combination_key:9", dispatched + 1);
}

// Makes the dumps that share files, with all that else writes those, or the others.
void make_own_dumps(bool sharing) {
    for (const int round : {0, ROUND}) {
        for (const auto& dump : OWN_DUMPS) {
            if (dump.shares_files != sharing) {
                continue;
            }
            const int error_no = dump.error_no + round;
            report_error(dump.client, error_no, listen_text(error_no));
            for (int producer = 0; sharing && producer < 3; ++producer) {
                dmd_dump_error(get_client_by_name("dsm_audio"), error_no, producer, "on");
            }
            dmd_dump_error(get_client_by_name(dump.client), error_no, dump.slot, "on");
        }
    }
}

void make_standalone_dumps(int error_no) {
    dmd_client* const panel = get_client_by_name("dsm_tp");
    for (const int end = error_no + 2 * ROUND; error_no < end; error_no += ROUND) {
        dmd_error_info info = make_error_info(error_no, 0);
        tp_force_dump_error(panel, error_no, "on");
        dmd_compress_output("/data/tombstones", 0, &info, DUMP_PATHS);
        tp_force_dump_error(panel, error_no, "on");
        dmd_force_dump_error(get_client_by_name("dsm_lcd"), error_no, 1, "on");
        dmd_force_dump_error(panel, error_no, 2, "on");
    }
}

// Gives the clients' descriptors other numbers, and asks the driver for their names once more. Logging
// nothing, it is a race to whoever does without the locks.
void renew(const std::vector<dmd_client*>& clients, const std::atomic<bool>& dumping) {
    for (size_t i = 0; dumping; ++i) {
        dmd_client* const client = clients[i % clients.size()];
        lclient record = {};
        record.dclient = client;
        {
            const MutexLock lock(client->mutex);
            const UniqueFd old(std::exchange(client->fd, fcntl(client->fd, F_DUPFD_CLOEXEC, 0)));
            record.fd = client->fd;
        }
        lclient_get_device_info(&record, DSM_IOCTL_GET_DEVICE_NAME);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace

class Threads : public testing::TestWithParam<bool> {};

TEST_P(Threads, DumpAtOnce) {
    const bool commercial = GetParam();
    const int count = commercial && !SANITIZED ? 50 : 8;
    LogCapture log;
    ASSERT_EQ(0, chdir("/data") | setenv("TZ", "UTC", 1));  // else tzset frees under a lock of its own
    output_of(
        "m=ruvo_logs/memorydump/m; mkdir -p $m kvdx_logs/charge_monitor splash2 tombstones android_logs;"
        "touch -d @1 $m/hifi3.bin $m/zc8830_reg.bin kvdx_logs/charge_monitor/a splash2/recovery_log"
        " tombstones/b android_logs/charge-log $m");
    phone_do({"image", "image\n"});
    phone_do({"names", "dsm_tp", "panel", "ofl", "syn"});
    bring_up(section_text("listen", "dsm_tp", "num_triggers 1\n" + trigger(LISTEN_ERROR, "dsm_tp+0")) +
                 section_text("poll", "dsm_tp",
                              "sampling_period 20\nnum_triggers 1\n" + trigger(POLL_STATE, "dsm_tp+0")),
             false);
    get_client_by_name("dsm_tp")->force_dump[1] = dsm_force_dump_error;
    phone_do({"state", "dsm_tp", std::to_string(POLL_STATE)});
    ASSERT_EQ(0, dmd_listen_server_init());
    ASSERT_EQ(0, dmd_poll_server_init());
    ASSERT_EQ(0, dmd_command_sever_init());
    ASSERT_EQ(0, dmd_key_detect_sever_init());
    set_commercial(commercial);
    hold_clock(1000);  // the pauses between the keys are the machine's

    std::vector<dmd_client*> clients;
    for (const char* const name : {"dsm_tp", "dsm_audio", "dsm_sensorhub", "dsm_power_key", "dsm_lcd"}) {
        clients.push_back(get_client_by_name(name));
    }
    std::atomic<bool> dumping{true};
    std::thread renewing([&] { renew(clients, dumping); });
    std::thread errors([&] {
        for (int i = 0; i < count; ++i) {
            report_error("dsm_tp", LISTEN_ERROR, listen_text(i));
        }
    });
    std::thread messages([&] {
        const UniqueFd connection = connect_to_commands();
        for (int i = 0; i < count; ++i) {
            EXPECT_TRUE(send_bytes(connection, command_message("dsm_tp", 0, 30000 + i)));
        }
    });
    std::vector<std::thread> others;
    others.emplace_back(make_own_dumps, true);
    others.emplace_back(make_own_dumps, false);
    others.emplace_back(make_standalone_dumps, 42000);
    others.emplace_back(make_standalone_dumps, 43000);
    for (int i = 0; i < count; ++i) {
        EXPECT_TRUE(press_combination(log, i));
    }
    errors.join();
    messages.join();
    for (std::thread& thread : others) {
        thread.join();
    }
    dumping = false;
    renewing.join();
    ASSERT_TRUE(log.wait_for("client dsm_tp's error (7) occured", count));
    phone_do({"state", "dsm_tp", "0"});
    ASSERT_TRUE(log.wait_for("client dsm_tp's error (0) ignored"));
    const int polled = log.count("client dsm_tp's error (7) occured");
    ASSERT_TRUE(log.wait_for(" dsm_tp finish dump ", 3 * count + polled));

    std::map<int, std::vector<std::string>> expected;
    for (int i = 0; i < count; ++i) {
        expected[LISTEN_ERROR].push_back(listen_text(i));
        expected[30000 + i].push_back(forced_text(30000 + i));
        expected[KEY_ERROR].push_back(forced_text(KEY_ERROR));
    }
    expected[POLL_STATE].assign(static_cast<size_t>(polled), forced_text(POLL_STATE));
    for (const auto& dump : OWN_DUMPS) {
        expected[dump.error_no] = {listen_text(dump.error_no)};
        expected[dump.error_no + ROUND] = {listen_text(dump.error_no + ROUND)};
    }
    std::map<int, std::vector<std::string>> found;
    EXPECT_TRUE(wait_until([&] { return (found = contents()) == expected; }));
    for (const auto& [number, texts] : expected) {
        EXPECT_EQ(texts, found[number]) << number;
    }
    EXPECT_EQ(expected.size(), found.size());
    ASSERT_EQ(0, chdir(LOG_DIR));
    for (const auto& dump : OWN_DUMPS) {
        if (!commercial && dump.file != nullptr) {
            const std::string list = "tar -tzf dmd_dump_" + std::to_string(dump.error_no) + "_*.tar.gz";
            EXPECT_LT(0, count_of(output_of(list), dump.file)) << list;
        }
    }
    const int frames = log.count("dump graphic file:") - log.count("dumped file mmap failed");
    const int own = commercial ? 0 : frames + log.count("read tp raw capacity OK!") + 6;
    EXPECT_TRUE(commercial || (frames > 0 && own > frames + 6));
    EXPECT_EQ(own, count_of(output_of("find . -name '*.txt.gz' -o -name '*_000000.tar.gz'"), "\n"));
    EXPECT_EQ(commercial ? "" : "image\nimage\n", output_of("cat dmd_dump_41?05_*.txt.gz | gzip -dcf"));
}

INSTANTIATE_TEST_SUITE_P(OnBoth, Threads, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Commercial" : "Debug"; });
