// All four of the daemon's threads at once on one client: errors, polled states, messages and keys. Nothing
// is lost, and no report is mixed with another's.
#include <map>
#include <thread>
#include <utility>

#include "clients/generic_dump.h"
#include "clients/registry.h"
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

std::string listen_text(int i) {
    return "error " + std::to_string(i) + std::string(900, static_cast<char>('a' + i % 26)) + "\n";
}

std::string forced_text(int error_no) {
    return "forced dump of error " + std::to_string(error_no) + " of dsm_tp\n";
}

// The driver's text in each report of all record files, by error number; under 0 what is no whole report.
std::map<int, std::vector<std::string>> contents() {
    const std::string banner = "\n========Device Bugreport========\n";
    std::map<int, std::vector<std::string>> found;
    for (int index = 0; index < 4; ++index) {
        std::string record =
            read_file(std::string(LOG_DIR) + "/dmd_record_" + std::to_string(index) + ".txt");
        while (!record.empty()) {
            const std::string report = record.substr(0, record.find(banner, 1));
            record.erase(0, report.size());
            const size_t number = report.find("\n[Error no]:");
            const size_t process = report.find("\n[Runing_test_switch]:on\n[Temperature]:null\n[Process]:\n");
            const size_t content = report.find("\n[Content]:\n");
            if (report.find(banner) == 0 && number < process && process < content &&
                content != std::string::npos) {
                found[atoi(report.c_str() + number + 12)].push_back(report.substr(content + 12));
            } else {
                found[0].push_back(report);
            }
        }
    }
    return found;
}

// Presses a combination that asks for a dump of dsm_tp, and waits until it was taken. The pauses between the
// keys are the machine's, so it may not be: then the next one starts after a pause.
bool press_combination(const LogCapture& log, int dispatched) {
    for (const auto& [code, value] : {std::pair("114", "1"), std::pair("115", "1"), std::pair("115", "0"),
                                      std::pair("115", "1"), std::pair("115", "0"), std::pair("114", "0")}) {
        phone_do({"key", "event1", code, value});
    }
    return log.wait_for("dmd_key_dispatch combination_key:9", dispatched + 1, 1000);
}

}  // namespace

class Threads : public testing::TestWithParam<bool> {};

TEST_P(Threads, DumpTheSameClientAtOnce) {
    const bool commercial = GetParam();
    const int count = commercial && !SANITIZED ? 50 : 8;
    LogCapture log;
    hold_sleeps();
    bring_up(section_text("listen", "dsm_tp", "num_triggers 1\n" + trigger(LISTEN_ERROR, "dsm_tp+0")) +
                 section_text("poll", "dsm_tp",
                              "sampling_period 1\nnum_triggers 1\n" + trigger(POLL_STATE, "dsm_tp+0")),
             false);
    get_client_by_name("dsm_tp")->force_dump[1] = dsm_force_dump_error;
    phone_do({"state", "dsm_tp", std::to_string(POLL_STATE)});
    ASSERT_EQ(0, dmd_listen_server_init());
    ASSERT_EQ(0, dmd_poll_server_init());
    ASSERT_EQ(0, dmd_command_sever_init());
    ASSERT_EQ(0, dmd_key_detect_sever_init());
    set_commercial(commercial);

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
    std::thread ticks([&] {
        for (int i = 0; i < count; ++i) {
            let_a_sleep_pass();
        }
    });
    int combinations = 0;
    for (int i = 0; i < count; ++i) {
        combinations += press_combination(log, combinations) ? 1 : 0;
    }
    errors.join();
    messages.join();
    ticks.join();
    EXPECT_GE(combinations, 1);
    ASSERT_TRUE(wait_until([&] {
        return log.count(" dsm_tp finish dump ") == 3 * count + log.count("dispatch combination_key:9");
    }));
    ASSERT_TRUE(wait_until([&] { return phone_do({"pending", "dsm_tp"}) == "0"; }));

    std::map<int, std::vector<std::string>> expected;
    for (int i = 0; i < count; ++i) {
        expected[LISTEN_ERROR].push_back(listen_text(i));
        expected[30000 + i].push_back(forced_text(30000 + i));
        expected[POLL_STATE].push_back(forced_text(POLL_STATE));
    }
    expected[KEY_ERROR].assign(static_cast<size_t>(log.count("dispatch combination_key:9")),
                               forced_text(KEY_ERROR));
    EXPECT_TRUE(wait_until([&] { return contents() == expected; }));
    EXPECT_EQ(expected, contents());
}

INSTANTIATE_TEST_SUITE_P(OnBoth, Threads, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Commercial" : "Debug"; });
