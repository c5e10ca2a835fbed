// The touch panel's debug cycle: its steps, the text that it saves, and threads that want the same step.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <thread>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "output/dump_archive.h"
#include "platform/log.h"
#include "platform/text.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

// The force-dump slots of the cycle: one takes it on, from arming to collecting, the other ends it.
enum slot { TAKE_ON = 1, DISABLE = 2 };

// Dumps of one number would wait for each other's second to pass.
int step(slot taken, const char* RT_switch = "on") {
    static std::atomic<int> error_no{20000};
    return dmd_force_dump_error(get_client_by_name("dsm_tp"), ++error_no, taken, RT_switch);
}

std::string put_settings(const char* value) {
    std::string commands;
    for (const char* const name : {"show_touches", "pointer_location", "haptic_feedback_enabled"}) {
        commands += std::string("settings put system ") + name + " " + value + "\n";
    }
    return commands;
}

// What a driver's file holds for each part of the text, and what stands around it there.
struct source {
    const char* path;
    std::string content;
    const char* before;
    const char* after;  // only where the file has brought something
    const char* nothing_read;
};

const std::vector<source> SOURCES = {
    {"/proc/touchscreen/rawdata", "RR", "", "", "read tp raw capacity failed!"},
    {"/sys/touch_screen/synaptics_debug_test", "DD", "", "", "read tp diff capacity failed!"},
    {"/data/input", "II", "\n", "", "read dmd_temp.txt failed!"},
    {"/sys/class/power_supply/USB/online", "1\n", "USB insert state is:", "\n", "read USB state failed!"},
    {"/sys/class/power_supply/Mains/online", "0\n", "CHARGER insert state is:", "\n",
     "read charger state failed!"},
};
constexpr size_t CHARGER = 4;

// Has the drivers show the sources' contents. Returns the text that they make.
std::string show(const std::vector<source>& sources) {
    replace_command("dumpsys", "cat /data/input || rm /data/dmd_temp.txt\nexit 5");
    std::string text;
    for (const source& shown : sources) {
        write_file(shown.path, shown.content);
        text += shown.before + shown.content + (shown.content.empty() ? "" : shown.after);
    }
    return text;
}

// Goes through the cycle. Returns what it has saved, and leaves nothing of it.
std::string saved_by_cycle(int collected = 0) {
    EXPECT_EQ(0, step(TAKE_ON));
    EXPECT_EQ(collected, step(TAKE_ON));
    EXPECT_EQ(0, step(DISABLE));
    return output_of("cd /data/kvdx_logs/dmd_log; cat *.gz 2>/dev/null | gzip -dcf; rm -f *");
}

}  // namespace

TEST(TouchPanel, StepsFormACycle) {
    const std::string arm = put_settings("1"), disarm = put_settings("0");
    const std::string collect = "screencap -p /data/kvdx_logs/dmd_log/tp_screencap.png\ndumpsys input\n";
    const std::string before = "0\n0\n0\n", after_collecting = "1\n1\n500\n", after_disabling = "0\n0\n500\n";
    const std::string not_armed = "tp debug state is not idle or enable for disable.";
    const struct {
        const char* what;
        bool commercial;
        slot taken;
        const char* RT_switch;
        int result;
        std::string commands;
        std::string files;  // what is in those of the kernel log, the framework log and the vibrator then
        std::string message;
    } steps[] = {
        {"nothing to disable", false, DISABLE, "on", -1, "", before, not_armed},
        {"arm", false, TAKE_ON, "on", 0, arm, before, ""},
        {"nothing collected yet", false, DISABLE, "on", -1, "", before, not_armed},
        {"collect", false, TAKE_ON, "on", 0, collect, after_collecting, "read tp diff capacity OK!"},
        {"collected already", false, TAKE_ON, "on", -1, "", after_collecting,
         "tp debug state is not idle or disbale for enable."},
        {"no switch to disable with", false, DISABLE, nullptr, -1, "", after_collecting,
         "invalid client ptr or RT switch ptr!"},
        {"disable", false, DISABLE, "on", 0, disarm, after_disabling, ""},
        {"no switch", false, TAKE_ON, nullptr, -1, "", after_disabling,
         "invalid dmd client ptr or RT_switch."},
        {"can be disabled then, on any build", true, DISABLE, "on", 0, disarm, after_disabling, ""},
        {"commercial", true, TAKE_ON, "on", -1, "", after_disabling, ""},
        {"can be disabled then too", false, DISABLE, "on", 0, disarm, after_disabling, ""},
    };
    bring_up("", false);
    name_device("dsm_tp", "tpdev");
    for (const auto& s : steps) {
        SCOPED_TRACE(s.what);
        set_commercial(s.commercial);
        write_file("/data/commands.log", "");
        const LogCapture log;
        EXPECT_EQ(s.result, step(s.taken, s.RT_switch));
        EXPECT_EQ(s.commands, read_file("/data/commands.log"));
        EXPECT_EQ(s.files, read_file("/sys/bus/platform/devices/qelvan_touch/loglevel") +
                               read_file("/sys/touch_screen/synaptics_trigger_log") +
                               read_file("/sys/class/timed_output/vibrator/enable"));
        const auto messages =
            messages_of(s.taken == TAKE_ON ? "tp_force_dump_error" : "tp_debug_disable", log);
        EXPECT_EQ(s.message, messages.empty() ? "" : messages.back());
    }
    EXPECT_EQ(
        0U, read_file(std::string(LOG_DIR) + "/apr_info.txt").find("device_name\ttpdev\nerror_no\t20004\n"));
}

TEST(TouchPanel, TwoThreadsTakeTwoSteps) {
    bring_up("", false);
    for (int cycle = 0; cycle < 3; ++cycle) {
        std::thread other([] { EXPECT_EQ(0, step(TAKE_ON)) << "armed or collected from, but not twice"; });
        EXPECT_EQ(0, step(TAKE_ON));
        other.join();
        EXPECT_EQ(0, step(DISABLE));
    }
}

TEST(TouchPanel, ADumpOfAnotherDayKeepsItsName) {
    bring_up("", false);
    dmd_error_info info = make_error_info(20001, static_cast<int32_t>(time(nullptr)));
    ASSERT_EQ(0, mkdir_parent());
    for (int second = 0; second < 3; ++second, ++info.time) {
        char stem[PATH_SIZE];
        format_dump_stem(stem, sizeof stem, info);
        write_file(std::string(stem) + ".txt.gz", "old");
    }
    dmd_client* const panel = get_client_by_name("dsm_tp");
    EXPECT_EQ(0, dmd_force_dump_error(panel, info.error_no, TAKE_ON, "on"));
    EXPECT_EQ(0, dmd_force_dump_error(panel, info.error_no, TAKE_ON, "on"));
    EXPECT_EQ("4\n", output_of("ls /data/kvdx_logs/dmd_log/*.txt.gz | wc -l"));
    EXPECT_EQ("3\n", output_of("grep -lx old /data/kvdx_logs/dmd_log/*.txt.gz | wc -l"));
}

TEST(TouchPanel, NoFileIsWaitedFor) {
    bring_up("", false);
    const LogCapture log;
    for (const char* const path : {"/proc/touchscreen/rawdata", "/sys/touch_screen/synaptics_debug_test",
                                   "/sys/class/power_supply/USB/online"}) {
        unlink(path);
        ASSERT_EQ(0, mkfifo(path, 0600)) << path;
    }
    replace_command("dumpsys", "rm /data/dmd_temp.txt; mkfifo /data/dmd_temp.txt");
    EXPECT_EQ(0, step(TAKE_ON));
    EXPECT_EQ(0, step(TAKE_ON));
    EXPECT_EQ(4, log.count("Unable to open "));
}

TEST(TouchPanel, WhatASourceDoesNotBringIsLeftOut) {
    bring_up("", false);
    for (size_t i = 0; i < SOURCES.size(); ++i) {
        SCOPED_TRACE(SOURCES[i].path);
        std::vector<source> sources = SOURCES;
        sources[i].content = "";
        const std::string text = show(sources);
        LogCapture log;
        // An empty state of the charger ends the dump, with the status of dumpsys.
        EXPECT_EQ(i == CHARGER ? "" : text, saved_by_cycle(i == CHARGER ? 5 << 8 : 0)) << "empty";
        EXPECT_TRUE(log.has(SOURCES[i].nothing_read));
        ASSERT_EQ(0, unlink(SOURCES[i].path));
        log.clear();
        EXPECT_EQ(text, saved_by_cycle()) << "missing";
        EXPECT_TRUE(log.has("[M/tp_force_dump_error] Unable to open /"));
        EXPECT_FALSE(log.has("dumpsys inputfailed")) << "whatever it ended with";
    }
}

TEST(TouchPanel, TextIsCutAtItsLimitWhereverThatFalls) {
    constexpr size_t LIMIT = 32768;
    bring_up("", false);
    std::vector<source> sources = SOURCES;
    const size_t others = show(sources).size() - sources[0].content.size();
    for (size_t over = 0; over <= others + 1; ++over) {
        sources[0].content = std::string(LIMIT - others + over, '\0');
        const std::string text = show(sources);
        EXPECT_TRUE(text.substr(0, LIMIT) == saved_by_cycle()) << over << " bytes too many";
    }
}

TEST(TouchPanel, CommandsThatCannotBeStartedAreReported) {
    bring_up("", false);
    const LogCapture log;
    run_without_processes([] {
        EXPECT_EQ(-1, step(TAKE_ON));
        EXPECT_EQ(-1, step(TAKE_ON));
        EXPECT_EQ(-1, step(DISABLE));
    });
    for (const char* const failure :
         {"show tp touch failed", "show tp pointer location failed", "open haptic feedback failed",
          "screencap failed", "dumpsys inputfailed", "open tp kernel log failed",
          "enable tp framework log failed", "vibrator enable failed", "disable tp kernel log failed",
          "disable tp framework log failed", " tp touch disable failed",
          " tp pointer location disable failed", " haptic feedback disable failed"}) {
        const std::string reason = ". error:Resource temporarily unavailable.";
        EXPECT_EQ(1, log.count(std::string("] ") + failure + reason)) << failure;
    }
}
