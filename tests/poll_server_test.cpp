// The poll server's thread on the real driver: when it samples, what it makes of a state, and what it does
// without one. The clock ticks when the test lets it.
#include "servers/poll_server.h"
#include "clients/registry.h"
#include "platform/log.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

std::string section(const std::string& client, const std::string& fields) {
    return section_text("poll", client, fields);
}

// Starts the poll server and waits until it waits for the first tick.
void start_polling(const LogCapture& log, const std::string& configuration) {
    debug_output_enabled = 1;
    hold_sleeps();
    bring_up(configuration);
    ASSERT_EQ(0, dmd_poll_server_init());
    ASSERT_TRUE(log.wait_for("[D/poll_server] enter sleep, clock tick 0"));
}

// Lets the clock tick once more and waits until the sweep is over.
void tick(const LogCapture& log) {
    static int ticks = 0;
    const std::string number = std::to_string(++ticks);
    let_a_sleep_pass();
    ASSERT_TRUE(log.wait_for("[D/poll_server] enter sleep, clock tick " + number));
    ASSERT_TRUE(log.has("[D/poll_server] exit sleep, clock tick " + number));
}

}  // namespace

TEST(PollServer, SamplesEachClientAtItsPeriod) {
    LogCapture log;
    start_polling(log, section("dsm_tp", "sampling_period 2\n") + section("dsm_lcd", "sampling_period 3\n") +
                           section("dsm_key", "sampling_period 0\n") + section("dsm_hall", "") +
                           section("dsm_nfc", "sampling_period -1\n") +
                           section("DSM_CPU_BUCK", "sampling_period 1\n") + section("dsm_nobody", ""));
    EXPECT_TRUE(log.has("[M/poll_client_init] pclient dsm_tp init success, fd-"));
    EXPECT_EQ(2, log.count(" sample period-5 triggers num-0"));
    EXPECT_EQ(6, log.count("[M/poll_client_init] find client "));
    log.clear();
    for (int i = 0; i < 6; ++i) {
        tick(log);
    }
    std::string sampled;
    for (const std::string& line : log.lines()) {
        char name[32];
        if (sscanf(line.c_str(), "[M/poll_server] poll %31[^']'s state 0", name) == 1) {
            sampled += std::string(name) + " ";
        } else if (line.find("exit sleep") != std::string::npos) {
            sampled += "| ";
        }
    }
    // The client set up last goes first; they are set up in the registry's order.
    EXPECT_EQ(
        "| dsm_cpu_buck | dsm_cpu_buck dsm_tp | dsm_cpu_buck dsm_lcd | dsm_cpu_buck dsm_tp "
        "| dsm_cpu_buck dsm_hall dsm_key | dsm_cpu_buck dsm_lcd dsm_tp ",
        sampled);
    EXPECT_TRUE(wait_until([] { return seconds_slept() == 7U * 5; }));
}

TEST(PollServer, RunsTheFirstMatchingTriggersActionsAtEverySample) {
    LogCapture log;
    start_polling(log,
                  section("dsm_tp", "sampling_period 1\nnum_triggers 4\n" +
                                        trigger(3, "DSM_LCD+0 dsm_nobody+0 dsm_tp+99 dsm_recovery+0") +
                                        trigger(3, "dsm_tp+0") + "error_no 17\nrunning_test_switch off\n" +
                                        "action dsm_tp+0\nerror_no 5\n"));
    EXPECT_TRUE(log.has("[D/poll_client_init] triggers[2] error no-17, action num-1"));
    EXPECT_TRUE(log.has("[D/poll_client_init] action[2] client name-dsm_tp, action info-99"));
    log.clear();
    phone_do({"state", "dsm_tp", "3"});
    report_error("dsm_tp", 3, "a poll does not read what is reported");
    tick(log);
    const std::vector<std::string> sample = {"poll dsm_tp's state 3",
                                             "client dsm_tp's error (3) occured",
                                             "action-0, cname-DSM_LCD, info-0",
                                             "action-1, cname-dsm_nobody, info-0",
                                             "can get specific client",
                                             "action-2, cname-dsm_tp, info-99",
                                             "action-3, cname-dsm_recovery, info-0"};
    EXPECT_EQ(sample, messages_of("poll_server", log));
    const std::string report = "[Content]:\nforced dump of error 3 of dsm_lcd\n";
    EXPECT_EQ(1, count_of(read_file(RECORD), report));
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Device]:dsm_lcd\n"));
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Error no]:03\n[Runing_test_switch]:on\n"));
    log.clear();
    tick(log);
    EXPECT_EQ(sample, messages_of("poll_server", log)) << "nothing remembers that it has fired";
    EXPECT_EQ(2, count_of(read_file(RECORD), report));
    EXPECT_EQ("1", phone_do({"pending", "dsm_tp"}));

    for (const std::string state : {"17", "5"}) {
        phone_do({"state", "dsm_tp", state});
        tick(log);
    }
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Content]:\nforced dump of error 17 of dsm_tp\n"));
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Error no]:17\n[Runing_test_switch]:off\n"));
    EXPECT_TRUE(log.has("client dsm_tp's error (5) ignored")) << "its trigger is not complete";
}

TEST(PollServer, AStateThatCannotBeReadIsZero) {
    LogCapture log;
    start_polling(log, section("dsm_tp", "sampling_period 1\nnum_triggers 1\n" + trigger(0, "dsm_tp+0")) +
                           section("dsm_lcd", "sampling_period 1\n"));
    phone_do({"state", "dsm_tp", "9"});
    phone_do({"state", "dsm_lcd", "9"});
    phone_do({"answer", "dsm_tp", "state", "-5", "1"});
    phone_do({"answer", "dsm_lcd", "state", "6", "1"});
    tick(log);
    EXPECT_TRUE(log.has("[M/poll_pclient_state] poll client dsm_tp failed -1"));
    EXPECT_TRUE(log.has("[M/poll_server] client dsm_tp's error (0) occured"));
    EXPECT_EQ(1, count_of(read_file(RECORD), "forced dump of error 0 of dsm_tp\n"));
    EXPECT_TRUE(log.has("[M/poll_pclient_state] poll client dsm_lcd failed 6"));
    EXPECT_TRUE(log.has("[M/poll_server] client dsm_lcd's error (0) ignored"));
    phone_do({"gone"});
    tick(log);
    EXPECT_EQ(4, log.count("[M/poll_pclient_state] poll client ")) << "the device is gone";
    phone_do({"back"});
    tick(log);
    EXPECT_TRUE(log.has("[D/poll_pclient_state] poll client dsm_tp result 9"));
}

TEST(PollServer, LeavesAClientOutThatCannotBeSetUp) {
    phone_do({"names", "dsm_tp", "driver_device", "", ""});
    LogCapture log;
    const std::string names = "ic_name sic\nmodule_name smo\n";
    bring_up(section("dsm_tp", names) + section("dsm_lcd", names));
    phone_do({"answer", "dsm_lcd", "bind", "-5"});
    phone_do({"answer", "dsm_tp", "ic_name", "4"});
    debug_output_enabled = 1;
    poll_client_init();
    EXPECT_TRUE(log.has("[M/poll_client_init] can't bind client dsm_lcd's fd"));
    EXPECT_EQ(1, log.count(" init success, fd-"));
    EXPECT_TRUE(log.has("[D/pclient_get_device_info] dsm_tp get client error failed 4"));
    EXPECT_EQ("1", phone_do({"bound", "dsm_lcd"})) << "the registry's";
    dmd_client* const panel = get_client_by_name("dsm_tp");
    const MutexLock lock(client_names_lock);
    EXPECT_STREQ("driver_device", panel->device_name);
    EXPECT_STREQ("", panel->ic_name) << "a positive answer counts as one";
    EXPECT_STREQ("smo", panel->module_name);
}
