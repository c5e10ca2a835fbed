// The touch panel's debug cycle: its steps, the text that it saves, and threads that want the same step.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <thread>
#include <tuple>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "output/dump_archive.h"
#include "platform/text.h"
#include "tests/bring_up.h"

namespace {

// Slot 1 takes the cycle on, slot 2 ends it. Dumps of one number would wait for each other's second to pass.
int step(int slot, const char* RT_switch = "on") {
    static std::atomic<int> error_no{20000};
    return dmd_force_dump_error(get_client_by_name("dsm_tp"), ++error_no, slot, RT_switch);
}

}  // namespace

TEST(TouchPanel, StepsFormACycle) {
    bring_up("", false);
    {
        const MutexLock lock(client_names_lock);
        copy_text(get_client_by_name("dsm_tp")->device_name, "tpdev");
    }
    const std::string put = "printf 'settings put system %s\\n' show_touches\\ ";
    const std::string arm = output_of(put + "1 pointer_location\\ 1 haptic_feedback_enabled\\ 1");
    const std::string disarm = output_of(put + "0 pointer_location\\ 0 haptic_feedback_enabled\\ 0");
    const std::string collect = "screencap -p /data/kvdx_logs/dmd_log/tp_screencap.png\ndumpsys input\n";
    // Build, slot and switch; result, commands, what the drivers hold then, and the last message.
    const std::tuple<bool, int, const char*, int, std::string, std::string, std::string> steps[] = {
        {false, 2, "on", -1, "", "0\n0\n0\n", "tp debug state is not idle or enable for disable."},
        {false, 1, "on", 0, arm, "0\n0\n0\n", ""},
        {false, 2, "on", -1, "", "0\n0\n0\n", "tp debug state is not idle or enable for disable."},
        {false, 1, "on", 0, collect, "1\n1\n500\n", "read tp diff capacity OK!"},
        {false, 1, "on", -1, "", "1\n1\n500\n", "tp debug state is not idle or disbale for enable."},
        {false, 2, nullptr, -1, "", "1\n1\n500\n", "invalid client ptr or RT switch ptr!"},
        {false, 2, "on", 0, disarm, "0\n0\n500\n", ""},
        {false, 1, nullptr, -1, "", "0\n0\n500\n", "invalid dmd client ptr or RT_switch."},
        {true, 2, "on", 0, disarm, "0\n0\n500\n", ""},
        {true, 1, "on", -1, "", "0\n0\n500\n", ""},
        {false, 2, "on", 0, disarm, "0\n0\n500\n", ""},
    };
    for (const auto& [commercial, slot, RT_switch, result, commands, files, message] : steps) {
        set_commercial(commercial);
        write_file("/data/commands.log", "");
        const LogCapture log;
        EXPECT_EQ(result, step(slot, RT_switch));
        EXPECT_EQ(commands + files, output_of("cd /sys; cat /data/commands.log */*/*/qelvan_touch/loglevel "
                                              "*/synaptics_trigger_log class/*/vibrator/enable"));
        const auto messages = messages_of(slot == 1 ? "tp_force_dump_error" : "tp_debug_disable", log);
        EXPECT_EQ(message, messages.empty() ? "" : messages.back());
    }
    EXPECT_EQ(
        0U, read_file("/data/kvdx_logs/dmd_log/apr_info.txt").find("device_name\ttpdev\nerror_no\t20004\n"));
    // Two threads take two steps: the panel is armed once, and collected from once.
    for (int cycle = 0; cycle < 3; ++cycle) {
        std::thread other([] { EXPECT_EQ(0, step(1)); });
        EXPECT_EQ(0, step(1));
        other.join();
        EXPECT_EQ(0, step(2));
    }
}

TEST(TouchPanel, ADumpOfAnotherDayKeepsItsName) {
    bring_up("", false);
    dmd_error_info info = make_error_info(20001 + 100, static_cast<int32_t>(time(nullptr)));
    ASSERT_EQ(0, mkdir_parent());
    for (int second = 0; second < 3; ++second, ++info.time) {
        char stem[PATH_SIZE];
        format_dump_stem(stem, sizeof stem, info);
        write_file(std::string(stem) + ".txt.gz", "old");
    }
    dmd_client* const panel = get_client_by_name("dsm_tp");
    EXPECT_EQ(0, dmd_force_dump_error(panel, info.error_no, 1, "on"));
    EXPECT_EQ(0, dmd_force_dump_error(panel, info.error_no, 1, "on"));
    EXPECT_EQ(
        "4 3\n",
        output_of("cd /data/kvdx_logs/dmd_log; echo $(ls *.txt.gz | wc -l) $(grep -lx old *.gz | wc -l)"));
}

TEST(TouchPanel, NoFileIsWaitedFor) {
    bring_up("", false);
    const LogCapture log;
    for (const char* const path : {"/proc/touchscreen/rawdata", "/sys/touch_screen/synaptics_debug_test",
                                   "/sys/class/power_supply/USB/online"}) {
        unlink(path);
        ASSERT_EQ(0, mkfifo(path, 0600)) << path;
    }
    write_file("/system/bin/dumpsys", "#!/bin/sh\nrm /data/dmd_temp.txt; mkfifo /data/dmd_temp.txt\n");
    EXPECT_EQ(0, step(1));
    EXPECT_EQ(0, step(1));
    for (const char* const message : {"read tp raw capacity failed!", "read tp diff capacity failed!",
                                      "read dmd_temp.txt failed!", "read USB state failed!"}) {
        EXPECT_TRUE(log.has(message)) << message;
    }
}

// Each source is empty once and missing once; then the text is cut at every place behind the raw data.
TEST(TouchPanel, TextHoldsWhatCanBeReadAndFits) {
    bring_up("", false);
    write_file("/system/bin/dumpsys", "#!/bin/sh\ncat /data/input || rm /data/dmd_temp.txt\nexit 5\n");
    // A source, the text before it, its content, the text behind it, the message when it is empty.
    std::vector<std::string> pieces[] = {
        {"/proc/touchscreen/rawdata", "", "RR", "", "read tp raw capacity failed!"},
        {"/sys/touch_screen/synaptics_debug_test", "", "DD", "", "read tp diff capacity failed!"},
        {"/data/input", "\n", "II", "", "read dmd_temp.txt failed!"},
        {"/sys/class/power_supply/USB/online", "USB insert state is:", "1\n", "\n", "read USB state failed!"},
        {"/sys/class/power_supply/Mains/online", "CHARGER insert state is:", "0\n", "\n",
         "read charger state failed!"},
    };
    const char saved[] =
        "cat /data/kvdx_logs/dmd_log/*.gz 2>/dev/null | gzip -dcf; rm -f /data/kvdx_logs/dmd_log/*";
    LogCapture log;
    for (size_t i = 0; i < 67; ++i) {
        SCOPED_TRACE(i);
        const bool missing = i < 10 && i % 2 == 1, dropped = i == 8;
        pieces[0][2] = i < 10 ? "RR" : std::string(32779 - i, '\0');
        std::string text;
        for (size_t piece = 0; piece < 5; ++piece) {
            const std::string content = piece == i / 2 ? "" : pieces[piece][2];
            write_file(pieces[piece][0], content);
            text += pieces[piece][1] + content + (content.empty() ? "" : pieces[piece][3]);
        }
        EXPECT_EQ(0, missing ? unlink(pieces[i / 2][0].c_str()) : 0);
        log.clear();
        EXPECT_EQ(0, step(1));
        EXPECT_EQ(dropped ? 5 << 8 : 0, step(1));
        EXPECT_EQ(0, step(2));
        EXPECT_EQ(dropped ? "" : text.substr(0, 32768), output_of(saved));
        EXPECT_FALSE(log.has("dumpsys inputfailed")) << "whatever it ended with";
        EXPECT_TRUE(i >= 10 || log.has(missing ? "] Unable to open /" : pieces[i / 2][4]));
    }
}
