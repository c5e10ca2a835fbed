// The listen server's thread on the real driver: which errors it acts on, in which order, and what it does
// when the driver fails.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "clients/dsm_device.h"
#include "clients/registry.h"
#include "platform/log.h"
#include "servers/listen_server.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"
#include "tests/sanitized.h"
#include "triggers/command_server.h"

namespace {

std::string section(const std::string& client, const std::string& fields) {
    return section_text("listen", client, fields);
}

void start_listening(const std::string& configuration) {
    bring_up(configuration);
    ASSERT_EQ(0, dmd_listen_server_init());
}

std::vector<std::string> loop_messages(const LogCapture& log) {
    return messages_of("listen_server", log);
}

}  // namespace

TEST(ListenServer, RunsTheFirstMatchingTriggersActionsInOrder) {
    LogCapture log;
    start_listening(section(
        "dsm_tp",
        "num_triggers 4\n" + trigger(20002, "dsm_tp+0 dsm_nobody+0 DSM_LCD+0 dsm_tp+9 dsm_tp+8 dsm_tp+7") +
            trigger(20002, "dsm_lcd+0") + trigger(20003, "dsm_tp+99 dsm_tp+0") + "error_no 20004\n"));
    ASSERT_TRUE(log.wait_for("Enter select"));
    EXPECT_TRUE(log.has("[M/listen_client_init] lclient dsm_tp init success, fd-"));
    EXPECT_TRUE(log.has(" triggers num-4"));
    EXPECT_EQ(get_client_count() - 1, log.count("[M/listen_client_init] can't find client "));

    // Nothing watches dsm_lcd, so its error waits for the trigger's third action.
    report_error("dsm_lcd", 1, "display");
    report_error("dsm_tp", 20002, "touch");
    ASSERT_TRUE(log.wait_for("Enter select", 2));
    report_error("dsm_tp", 20003, "slot out of range, then a dump");
    ASSERT_TRUE(log.wait_for("Enter select", 3));
    report_error("dsm_tp", 20004, "its trigger is not complete");
    ASSERT_TRUE(log.wait_for("Enter select", 4));
    EXPECT_EQ((std::vector<std::string>{"Enter select", "dsm_tp has error (20002) reported",
                                        "action-0, cname-dsm_tp, info-0",
                                        "action-1, cname-dsm_nobody, info-0", "can not get specific client",
                                        "action-2, cname-DSM_LCD, info-0", "action-3, cname-dsm_tp, info-9",
                                        "action-4, cname-dsm_tp, info-8", "action-5, cname-dsm_tp, info-7",
                                        "Enter select", "dsm_tp has error (20003) reported",
                                        "action-0, cname-dsm_tp, info-99", "action-1, cname-dsm_tp, info-0",
                                        "Enter select", "dsm_tp has error (20004) ignored", "Enter select"}),
              loop_messages(log));
    EXPECT_EQ("0", phone_do({"pending", "dsm_tp"}));
    const std::string record = read_file(RECORD);
    EXPECT_EQ(3, count_of(record, "[Content]:"));
    EXPECT_LT(record.find("[Content]:\ntouch"), record.find("[Content]:\ndisplay"));
    EXPECT_EQ(std::string::npos, record.find("not complete"));
    EXPECT_EQ(0U, seconds_slept());
}

// The array of so many is reserved but never written.
TEST(ListenServer, OnlyCompleteTriggersAreSearched) {
    const std::string announced = sizeof(void*) == 4 || SANITIZED ? "2000000" : "20000000";
    LogCapture log;
    // The second array begins empty, but the next trigger of the section is still its second.
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(1, "dsm_tp+0") + "num_triggers " +
                                          announced + "\n" + trigger(2, "dsm_tp+0")));
    ASSERT_TRUE(log.wait_for("Enter select"));
    EXPECT_TRUE(log.has(" triggers num-" + announced));
    rusage before = {};
    getrusage(RUSAGE_SELF, &before);
    report_error("dsm_tp", 1, "of the array that went");
    ASSERT_TRUE(log.wait_for("dsm_tp has error (1) ignored"));
    ASSERT_TRUE(log.wait_for("Enter select", 2));
    rusage after = {};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_minflt - before.ru_minflt, SANITIZED ? 10000 : 500) << "pages looked at first";
    report_error("dsm_tp", 2, "second");
    EXPECT_TRUE(log.wait_for("dsm_tp has error (2) reported"));
}

TEST(ListenServer, TakesNamesFromTheDriverOrElseFromTheSection) {
    phone_do({"names", "dsm_lcd", "driver_panel_with_a_name_of_32_b", "MODU", "ICXY"});
    debug_output_enabled = 1;
    LogCapture log;
    const std::string names = "device_name section_device\nic_name sic\nmodule_name smo\nnum_triggers 9\n";
    start_listening(section("dsm_tp", names + trigger(1, "dsm_tp+0")) +
                    section("dsm_lcd", names + trigger(1, "dsm_lcd+0")));
    ASSERT_TRUE(log.wait_for("Enter select"));
    report_error("dsm_tp", 1, "t");
    ASSERT_TRUE(log.wait_for("Enter select", 2));
    report_error("dsm_lcd", 1, "l");
    ASSERT_TRUE(log.wait_for("Enter select", 3));
    const std::string record = read_file(RECORD);
    EXPECT_EQ(1, count_of(record, "[Device]:section_device\n"));
    EXPECT_EQ(1, count_of(record, "[Device]:driver_panel_with_a_name_of_32_\n"));
    dmd_client* const lcd = get_client_by_name("dsm_lcd");
    dmd_client* const tp = get_client_by_name("dsm_tp");
    const MutexLock lock(client_names_lock);
    EXPECT_EQ("ICXY", std::string(lcd->ic_name, 4));
    EXPECT_EQ("MODU", std::string(lcd->module_name, 4));
    EXPECT_STREQ("sic", tp->ic_name);
    EXPECT_STREQ("smo", tp->module_name);
    EXPECT_EQ(2, log.count("[D/listen_client_init] triggers[")) << "the complete ones, one of each client";
    EXPECT_TRUE(log.has("[D/lclient_get_device_info] dsm_tp get client info failed -1"));
}

TEST(ListenServer, ServesTheLowerDescriptorFirst) {
    LogCapture log;
    start_listening(section("dsm_lcd", "") + section("dsm_tp", "") + section("dsm_key", ""));
    ASSERT_TRUE(log.wait_for("Enter select"));
    {
        // The thread meets the client's lock while it clears, so that two more errors come in meanwhile.
        dmd_client* const tp = get_client_by_name("dsm_tp");
        const MutexLock lock(tp->mutex);
        report_error("dsm_tp", 1, "first");
        ASSERT_TRUE(log.wait_for("dsm_tp has error (1) ignored"));
        report_error("dsm_key", 3, "last descriptor");
        report_error("dsm_lcd", 2, "second descriptor");
    }
    ASSERT_TRUE(log.wait_for("Enter select", 3));
    EXPECT_EQ((std::vector<std::string>{"Enter select", "dsm_tp has error (1) ignored", "Enter select",
                                        "dsm_lcd has error (2) ignored", "dsm_key has error (3) ignored",
                                        "Enter select"}),
              loop_messages(log));
}

TEST(ListenServer, RefusesADescriptorThatSelectCannotWatch) {
    const rlimit limit = {4096, 4096};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        GTEST_SKIP() << "this user may not open as many descriptors";
    }
    LogCapture log;
    bring_up(section("dsm_tp", "num_triggers 1\n" + trigger(1, "dsm_tp+0")) + section("dsm_lcd", ""));
    int last = -1;
    while (last < FD_SETSIZE + 8) {
        last = open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_GE(last, 0);
    }
    close(FD_SETSIZE - 1);
    ASSERT_EQ(0, dmd_listen_server_init());
    ASSERT_TRUE(log.wait_for("Enter select"));
    EXPECT_TRUE(log.has("lclient dsm_tp init success, fd-1023"));
    EXPECT_TRUE(log.has("[M/listen_client_init] client dsm_lcd's fd-1033 does not fit the watched set"));
    EXPECT_EQ("1", phone_do({"bound", "dsm_lcd"})) << "only the registry's descriptor is left";
    report_error("dsm_tp", 1, "still served");
    EXPECT_TRUE(log.wait_for("Enter select", 2));
    EXPECT_TRUE(log.has("dsm_tp finish dump"));
}

TEST(ListenServer, AnErrorNumberThatCannotBeReadIsZero) {
    LogCapture log;
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(0, "dsm_tp+0")));
    ASSERT_TRUE(log.wait_for("Enter select"));
    phone_do({"answer", "dsm_tp", "error", "-5", "1"});
    report_error("dsm_tp", 20002, "reported as 0");
    ASSERT_TRUE(log.wait_for("Enter select", 2));
    EXPECT_TRUE(log.has("[M/lclient_get_error] dsm_tp get client error failed -1"));
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Error no]:00\n"));
    EXPECT_EQ(1, count_of(read_file(RECORD), "reported as 0"));
}

TEST(ListenServer, WhatASignalInterruptsIsRepeated) {
    const std::string interrupted = std::to_string(-EINTR);
    LogCapture log;
    phone_do({"answer", "dsm_tp", "bind", interrupted, "2"});
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(20002, "dsm_tp+0")));
    ASSERT_TRUE(log.wait_for("Enter select"));
    phone_do({"answer", "dsm_tp", "error", interrupted, "2"});
    phone_do({"answer", "dsm_tp", "read", interrupted, "2"});
    report_error("dsm_tp", 20002, "whole");
    ASSERT_TRUE(log.wait_for("Enter select", 2));
    EXPECT_EQ((std::vector<std::string>{"Enter select", "dsm_tp has error (20002) reported",
                                        "action-0, cname-dsm_tp, info-0", "Enter select"}),
              loop_messages(log));
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Content]:\nwhole"));
    phone_do({"answer", "dsm_tp", "read", interrupted, "1000"});
    report_error("dsm_tp", 20002, "never");
    EXPECT_TRUE(log.wait_for("read dsm_tp return -1 - Interrupted system call"));
}

TEST(ListenServer, AnErrorWithoutATextNowAndThenDelaysNothing) {
    LogCapture log;
    hold_clock(10000);
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(1, "dsm_tp+0")));
    for (int i = 1; i < 4; ++i) {
        ASSERT_TRUE(log.wait_for("Enter select", i));
        report_error("dsm_tp", 1, "");
        ASSERT_TRUE(log.wait_for("Enter select", i + 1));
        hold_clock(10000 + i * 60000);
    }
    report_error("dsm_tp", 1, "next");
    EXPECT_TRUE(wait_until([] { return count_of(read_file(RECORD), "[Content]:\nnext") == 1; }));
    EXPECT_EQ(3, log.count("read dsm_tp return 0"));
    EXPECT_EQ(0U, seconds_slept());
}

// What one client hands over says nothing of another.
TEST(ListenServer, AStuckClientRestsBesideABusyOne) {
    LogCapture log;
    hold_clock(10000);
    hold_sleeps();
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(7, "dsm_lcd+0")) +
                    section("dsm_key", "num_triggers 1\n" + trigger(1, "dsm_key+0")));
    ASSERT_TRUE(log.wait_for("Enter select"));
    report_error("dsm_tp", 7, "only dsm_lcd is dumped");
    for (int i = 1; i < 10; ++i) {
        report_error("dsm_key", 1, "key");
        ASSERT_TRUE(log.wait_for("dsm_key finish dump 3 bytes", i));
    }
    EXPECT_GE(3, log.count("dsm_tp has error (7) reported"));
    // Somebody reads its text: it has rested long enough.
    dsm_clear_error(get_client_by_name("dsm_tp"), 0);
    report_error("dsm_tp", 8, "a later error");
    report_error("dsm_key", 1, "wakes the thread");
    EXPECT_TRUE(log.wait_for("dsm_tp has error (8) ignored"));
}

TEST(ListenServer, AStuckClientRestsForEverLongerAndDelaysNoOther) {
    LogCapture log;
    hold_clock(10000);  // but for the rests, which take their time
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(7, "dsm_lcd+0")) +
                    section("dsm_key", "num_triggers 1\n" + trigger(1, "dsm_key+0")));
    ASSERT_TRUE(log.wait_for("Enter select"));
    report_error("dsm_tp", 7, "only dsm_lcd is dumped");
    const std::string pass = "dsm_tp has error (7) reported", action = "action-0, cname-dsm_lcd, info-0";
    ASSERT_TRUE(log.wait_for(action, 4));
    std::vector<std::string> messages = loop_messages(log);
    messages.resize(14);
    EXPECT_EQ((std::vector<std::string>{"Enter select", pass, action, "Enter select", pass, action,
                                        "Enter select", "Enter select", pass, action, "Enter select",
                                        "Enter select", pass, action}),
              messages);
    ASSERT_TRUE(log.wait_for(pass, 14));
    EXPECT_GT(seconds_slept(), 5U * 60U) << "each of the last six rests is a minute";
    EXPECT_LT(seconds_slept(), 60U * static_cast<unsigned int>(log.count(pass))) << "a minute at most";
    hold_sleeps();
    report_error("dsm_key", 1, "key");
    EXPECT_TRUE(wait_until([] { return count_of(read_file(RECORD), "[Content]:\nkey") == 1; }));
}

TEST(ListenServer, AnErrorWithoutATextEverySecondIsLookedAtEverLessOften) {
    LogCapture log;
    hold_sleeps();
    hold_clock(10000);
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(7, "dsm_tp+0")) + section("dsm_key", ""));
    ASSERT_TRUE(log.wait_for("Enter select"));
    int second = 0;
    const auto pass_second = [&] {
        hold_clock(10000 + ++second * 1000);
        report_error("dsm_key", 1, "a sound client");
        ASSERT_TRUE(log.wait_for("dsm_key finish clear", second));
    };
    for (int i = 0; i < 300; ++i) {
        report_error("dsm_tp", 7, "");
        pass_second();
    }
    EXPECT_GE(15, log.count("dsm_tp has error (7) reported"));
    // It works again.
    while (phone_do({"pending", "dsm_tp"}) != "0") {
        dsm_clear_error(get_client_by_name("dsm_tp"), 0);
    }
    report_error("dsm_tp", 7, "read by somebody else");
    dsm_clear_error(get_client_by_name("dsm_tp"), 0);
    pass_second();
    for (int i = 1; i < 4; ++i) {
        report_error("dsm_tp", 7, "text");
        EXPECT_TRUE(log.wait_for("dsm_tp finish dump 4 bytes", i)) << "without a rest";
    }
}

TEST(ListenServer, ManyBrokenClientsWakeTheThreadTogether) {
    const char* const clients[] = {"dsm_tp", "dsm_lcd", "dsm_key", "dsm_hall", "dsm_nfc", "dsm_wifi"};
    const std::string last = "dsm_wifi has error (7) reported";
    LogCapture log;
    std::string configuration;
    for (const char* const client : clients) {
        configuration += section(client, "num_triggers 1\n" + trigger(7, std::string(client) + "+0"));
        phone_do({"answer", client, "read", std::to_string(-EIO)});
    }
    start_listening(configuration);
    int64_t now_ms = 10000;
    for (const char* const client : clients) {
        hold_clock(now_ms += 700);
        report_error(client, 7, "stays");
        ASSERT_TRUE(log.wait_for(std::string("read ") + client, 2));
    }
    ASSERT_TRUE(log.wait_for(last, 10));
    log.clear();
    ASSERT_TRUE(log.wait_for(last, 5));
    EXPECT_GE(2 * 5 + 2, log.count("Enter select"));
    EXPECT_GE(6 * (5 + 1), log.count("has error (7) reported"));
}

// What leaves the driver ready for ever must neither spin the thread nor lose the reports that come later.
TEST(ListenServer, WaitsWhileTheDriverBringsNothing) {
    struct {
        const char* what;
        std::vector<std::string> breaks, mends;
        const char* message;
    } const cases[] = {
        {"reads fail",
         {"answer", "dsm_tp", "read", "-5"},
         {"answer", "dsm_tp", "read", "0"},
         "[M/dsm_dump_error] read dsm_tp return -1 - Input/output error"},
        {"the device is gone", {"gone"}, {"back"}, "[M/lclient_get_error] dsm_tp get client error failed -1"},
    };
    LogCapture log;
    hold_clock(10000);
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(1, "dsm_tp+0")));
    ASSERT_TRUE(log.wait_for("Enter select"));
    int reports = 0;
    for (const auto& c : cases) {
        log.clear();
        const unsigned int slept = seconds_slept();
        phone_do(c.breaks);
        report_error("dsm_tp", 1, "breaks");
        ASSERT_TRUE(log.wait_for(c.message, 3)) << c.what;
        EXPECT_GE(seconds_slept() - slept, 1U) << c.what;
        phone_do(c.mends);
        report_error("dsm_tp", 1, "mended");
        ++reports;
        EXPECT_TRUE(wait_until([&] { return count_of(read_file(RECORD), "mended") == reports; })) << c.what;
    }
    log.clear();
    const unsigned int slept = seconds_slept();
    phone_do({"die"});
    ASSERT_TRUE(log.wait_for("get client error failed", 3));
    EXPECT_GE(seconds_slept() - slept, 1U);
}

TEST(ListenServer, EndsAloneWhenItCannotWait) {
    LogCapture log;
    start_listening(section("dsm_tp", "num_triggers 1\n" + trigger(1, "dsm_tp+0")));
    ASSERT_EQ(0, dmd_command_sever_init());
    const size_t threads = names_in("/.phone/proc/self/task").size();
    fail_next_select();
    report_error("dsm_tp", 1, "wakes the thread");
    EXPECT_TRUE(wait_until([&] { return names_in("/.phone/proc/self/task").size() == threads - 1; }));
    EXPECT_EQ((std::vector<std::string>{"Enter select", "Dmd listen server select error"}),
              loop_messages(log));
    ASSERT_TRUE(send_bytes(connect_to_commands(), command_message("dsm_lcd", 0, 2)));
    EXPECT_TRUE(log.wait_for("dsm_lcd finish dump"));
}
