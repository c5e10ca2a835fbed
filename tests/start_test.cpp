// Start-up: the wait for the boot, the command line, and the daemon's own messages in their order.
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <iterator>

#include "clients/client_table.h"
#include "daemon/product_version.h"
#include "daemon/start_sequence.h"
#include "platform/properties.h"
#include "servers/poll_server.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"
#include "triggers/command_server.h"
#include "triggers/key_detector.h"

namespace {

constexpr char STARTED[] = "E/DMD: [M/main] Qelvan Device monitor daemon started\n";
constexpr char USAGE[] =
    "\nQelvan device monitor daemon\nOptional arguments:\n"
    "  --config-file/-c <file>        config file\n  --debug/-d                     debug output\n"
    "  --help/-h                      this help screen\n";

// The daemon's log but for its complaint about the priority, which only root's phone can raise.
std::string log_of(const DaemonProcess& dmd) {
    std::string log = dmd.log();
    const std::string complaint = "E/DMD: [M/main] setpriority failed - Permission denied\n";
    const size_t at = log.find(complaint);
    return at == std::string::npos ? log : log.erase(at, complaint.size());
}

}  // namespace

TEST(Start, WaitsForTheBootToComplete) {
    struct {
        const char* value;
        int tries;
        unsigned int slept;
    } const cases[] = {{"1", 1, 0}, {"1later", 1, 0}, {"0", 61, 60}, {" 1", 61, 60}, {"", 61, 60}};
    for (const auto& c : cases) {
        ASSERT_EQ(0, property_set("dev.bootcomplete", c.value));
        const unsigned int before = seconds_slept();
        EXPECT_EQ(c.tries, wait_for_boot_completion()) << c.value;
        EXPECT_EQ(c.slept, seconds_slept() - before) << c.value;
    }
}

TEST(Start, ProductVersionFollowsTheProperty) {
    struct {
        const char* value;
        int commercial;
    } const cases[] = {{"1", 0}, {"0", 1}, {"true", 1}, {"11", 1}};
    const LogCapture log;
    for (const auto& c : cases) {
        ASSERT_EQ(0, property_set("persist.sys.qelvan.debug.on", c.value));
        EXPECT_EQ(c.commercial, identify_product_version()) << c.value;
    }
    ASSERT_EQ(0, unlink("/dev/__properties__/persist.sys.qelvan.debug.on"));
    EXPECT_EQ(1, identify_product_version());
    EXPECT_EQ((std::vector<std::string>{
                  "[M/identify_product_version] get property:persist.sys.qelvan.debug.on failed."}),
              log.lines());
}

TEST(Start, CommandLineEndsInUsage) {
    struct {
        std::vector<std::string> arguments;
        std::string log;
    } const cases[] = {
        {{"-h"}, ""},
        {{"-d", "-h"}, "E/DMD: [M/parse_commandline] Debug output enabled\n"},
        {{"-c"}, ""},
        {{"-x"}, ""},
        {{"operand"}, "E/DMD: [M/parse_commandline] Too many arguments\n"},
        {{"-c", "a", "--config-file=b", "--", "c"},
         "E/DMD: [M/parse_commandline] Using config file 'a'\n"
         "E/DMD: [M/parse_commandline] Using config file 'b'\n"
         "E/DMD: [M/parse_commandline] Too many arguments\n"},
    };
    ASSERT_EQ(0, property_set("persist.sys.dmd.disable", "true"));
    for (const auto& c : cases) {
        DaemonProcess dmd(c.arguments);
        EXPECT_EQ(0, dmd.wait_for_exit());
        const std::string log = log_of(dmd);
        EXPECT_EQ(0U, log.find(STARTED)) << log;
        EXPECT_EQ(log.size(), log.find(USAGE) + sizeof USAGE - 1) << log;
        EXPECT_NE(std::string::npos, log.find(c.log)) << log;
        EXPECT_EQ(count_of(c.log, "[M/"), count_of(log, "[M/parse_commandline]")) << log;
    }
}

TEST(Start, RunsItsStepsInOrder) {
    DaemonProcess dmd({"-c", "/system/etc/device_state_monitor.conf"});
    for (const char* const started :
         {"Enter select", "pclient dsm_pmu_coul init success", "dmd_key_event_detect_thread start!"}) {
        ASSERT_TRUE(dmd.wait_for_log(started));
    }
    const std::string log = log_of(dmd);
    size_t at = 0;
    for (const char* const message :
         {STARTED, "[M/parse_commandline] Using config file '/system/etc/device_state_monitor.conf'\n",
          "[M/main] Enter daemon main loop, 1s has passed\n",
          "[M/dmd_client_init] default-client total: ", "[M/parse_config] Loading  configuration file...\n",
          "[M/dmd_command_sever_init] command server init success, fd - ",
          "[M/dmd_get_key_device] it's a key device, the input device is:event1\n"}) {
        const size_t found = log.find(message, at);
        ASSERT_NE(std::string::npos, found) << message << "\nafter\n" << log.substr(0, at);
        at = found + 1;
    }
    EXPECT_EQ(std::string::npos, log.find("failed")) << log;
    EXPECT_EQ("/dev/zero\n", output_of("readlink /.phone/proc/" + std::to_string(dmd.pid()) + "/fd/0"))
        << "what it was given is left alone";
    EXPECT_EQ(dmd.log().find("setpriority failed") == std::string::npos ? -20 : 0,
              getpriority(PRIO_PROCESS, static_cast<id_t>(dmd.pid())));
}

TEST(Start, TheLastConfigurationFileIsRead) {
    write_file("/data/first", section_text("listen", "dsm_tp", ""));
    write_file("/data/last", section_text("listen", "dsm_lcd", ""));
    const struct {
        const char* what;
        std::vector<std::string> arguments;
        const char* redirections;
    } cases[] = {
        {"the second of two options", {"-c", "/data/first", "-c", "/data/last"}, ""},
        {"standard input", {"-c", "/dev/stdin"}, "</data/last"},
    };
    for (const auto& c : cases) {
        const DaemonProcess dmd(c.arguments, c.redirections);
        EXPECT_TRUE(dmd.wait_for_log("Enter select")) << c.what;
        EXPECT_EQ(1, count_of(dmd.log(), "lclient dsm_lcd init success")) << c.what;
        EXPECT_EQ(1, count_of(dmd.log(), "init success, fd-")) << c.what;
    }
}

TEST(Start, MissingStandardDescriptorsAreFilled) {
    const DaemonProcess dmd({}, "<&- >&- 2>&-");
    const std::string descriptors = "/.phone/proc/" + std::to_string(dmd.pid()) + "/fd";
    ASSERT_TRUE(
        wait_until([&] { return static_cast<int>(names_in(descriptors).size()) > default_clients.count; }));
    EXPECT_EQ("/dev/null\n/dev/null\n/dev/null\n", output_of("cd " + descriptors + "; readlink 0 1 2"));
}

TEST(Start, AFailedStepEndsTheSequenceButNotTheDaemon) {
    struct {
        const char* what;
        const char* breaks;  // shell command
        const char* message;
        size_t started;  // of the steps below
    } const cases[] = {
        {"no configuration", "rm /system/etc/device_state_monitor.conf", "Parse config file failed :-1\n", 0},
        {"no place for the socket", "mv /dev/socket /dev/elsewhere", "command server init failed :-22\n", 2},
        {"no keys", "mv /dev/input /dev/nowhere", "key detect server init failed :   -1\n", 3},
    };
    const char* const steps[] = {"listen no client wait", "poll no client wait",
                                 "command server init success", "detect_thread start"};
    for (const auto& c : cases) {
        output_of(c.breaks);
        const DaemonProcess dmd({});
        ASSERT_TRUE(dmd.wait_for_log(std::string("[M/main] ") + c.message)) << c.what;
        EXPECT_EQ("1", phone_do({"bound", "dsm_tp"})) << c.what;
        for (size_t i = 0; i < std::size(steps); ++i) {
            EXPECT_EQ(i < c.started,
                      i < c.started ? dmd.wait_for_log(steps[i]) : count_of(dmd.log(), steps[i]) > 0)
                << c.what << ": " << steps[i];
        }
        EXPECT_EQ(0, count_of(dmd.log(), "Enter select")) << c.what;
        output_of("mkdir -p /dev/socket");
        write_file("/system/etc/device_state_monitor.conf", "");
    }
}

TEST(Start, AThreadThatCannotBeStartedIsReported) {
    // No stack has room for this.
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, SIZE_MAX / 4);
    ASSERT_EQ(0, pthread_setattr_default_np(&attributes));
    const LogCapture log;
    run_start_steps();
    EXPECT_TRUE(log.has("[M/dmd_listen_server_init] Error initializing dmd listen server"));
    EXPECT_EQ("[M/main] listen server init failed :" + std::to_string(EAGAIN), log.lines().back());
    EXPECT_EQ(EAGAIN, dmd_poll_server_init());
    EXPECT_TRUE(log.has("[M/dmd_poll_server_init] Error initializing dmd poll server"));
    EXPECT_EQ(-22, dmd_command_sever_init());
    EXPECT_TRUE(log.has("[M/dmd_command_sever_init] Unable to create pthread to process command"));
    EXPECT_EQ(EAGAIN, dmd_key_detect_sever_init());
    EXPECT_TRUE(log.has("[M/dmd_key_detect_sever_init] Unable to create pthread to process key event"));
    EXPECT_EQ("0", phone_do({"opened", "event1"}));
}

TEST(Start, DisabledItOnlySleeps) {
    ASSERT_EQ(0, property_set("persist.sys.dmd.disable", "TRUE"));
    {
        const DaemonProcess dmd({});
        EXPECT_TRUE(dmd.wait_for_log("Enter daemon main loop"));
    }
    ASSERT_EQ(0, property_set("persist.sys.dmd.disable", "true"));
    const DaemonProcess dmd({"-d"});
    // Asleep in pause: the daemon has done all that it is going to do.
    EXPECT_TRUE(wait_until([&] {
        const std::string status = read_file("/.phone/proc/" + std::to_string(dmd.pid()) + "/wchan");
        return status.find("pause") != std::string::npos;
    })) << dmd.log();
    EXPECT_EQ(std::string(STARTED) + "E/DMD: [M/parse_commandline] Debug output enabled\n", log_of(dmd));
}
