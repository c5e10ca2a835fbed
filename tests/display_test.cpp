// The dump of the display's frames: asking for them, waiting, and saving what was written meanwhile.
#include <thread>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "platform/properties.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

constexpr char ENABLE[] = "debug.frame_dump_enable";
constexpr char ONE_FRAME[] = "echo x >x.bmp";

// Dumps of one number would wait for each other's second to pass.
int dump(const char* RT_switch = "on") {
    static int error_no = 20000;
    return dmd_force_dump_error(get_client_by_name("dsm_lcd"), ++error_no, 1, RT_switch);
}

// Has the graphics service run commands in an empty folder of frames, and then set the property.
void answer_with(const std::string& commands, const std::string& property) {
    output_of("rm -rf /data/kvdx_logs /data/hwcdump/*");
    replace_command("dumpsys",
                    "cd /dev/__properties__; echo $* $(grep -h . debug.*) >/data/asked\n"
                    "cd /data/hwcdump; " +
                        commands +
                        "\n"
                        "echo " +
                        property + " >/dev/__properties__/" + ENABLE);
}

std::string saved_frames() {
    return output_of("cat /data/kvdx_logs/dmd_log/*.gz 2>/dev/null | gzip -dcf | sort");
}

}  // namespace

TEST(Display, SavesEachFrameOnItsOwn) {
    bring_up("", false);
    name_device("dsm_lcd", "lcddev");
    const int descriptors = open_descriptors("self");
    answer_with(
        "echo a >a.bmp; echo b >b.bmp.x; echo c >c; echo old >d.bmp; touch -d @1 d.bmp; "
        "echo new >e.bmp; touch -d 1day e.bmp",
        "0");
    EXPECT_EQ(0, dump());
    EXPECT_EQ("a\nb\n", saved_frames());
    EXPECT_EQ("SurfaceFlinger 2 2 1\n", read_file("/data/asked"));
    EXPECT_EQ(0U,
              read_file(std::string(LOG_DIR) + "/apr_info.txt").find("device_name\tlcddev\nerror_no\t2000"));
    EXPECT_EQ(descriptors, open_descriptors("self"));
}

TEST(Display, WaitsForTheServiceToSayThatItIsDone) {
    const struct {
        const char* property;
        bool done;
    } answers[] = {{"0", true}, {"-1", true}, {"abc", true}, {"4294967295", true}, {"2", false}, {"", false}};
    bring_up("", false);
    for (const auto& answer : answers) {
        SCOPED_TRACE(answer.property);
        answer_with(ONE_FRAME, answer.property);
        const LogCapture log;
        EXPECT_EQ(answer.done ? 0 : -1, dump());
        EXPECT_EQ(answer.done ? "x\n" : "", saved_frames());
        EXPECT_EQ(answer.done ? 0 : 60, log.count("] waiting for the graphics dump ..."));
        EXPECT_EQ(!answer.done, log.has("[M/lcd_force_dump_error] graphic dump timeout."));
    }
    answer_with(ONE_FRAME, "1");
    const unsigned int slept = seconds_slept();
    hold_sleeps();
    std::thread graphics([slept] {
        EXPECT_TRUE(wait_until([slept] { return seconds_slept() > slept; }));
        property_set(ENABLE, "0");
        for (int second = 0; second < 60; ++second) {
            let_a_sleep_pass();
        }
    });
    EXPECT_EQ(0, dump());
    graphics.join();
    EXPECT_EQ(1U, seconds_slept() - slept);
    EXPECT_EQ("x\n", saved_frames());
}

TEST(Display, AFrameThatCannotBeReadIsReported) {
    const struct {
        const char* makes;  // x.bmp
        int result;
        const char* message;
    } frames[] = {
        {"mkfifo x.bmp", 0, "leave /data/hwcdump/x.bmp alone, not a plain file"},
        {"touch x.bmp", -1, "graphics dumped file mmap failed, Invalid argument."},
        {"truncate -s 2G x.bmp", -1, "graphics dumped file mmap failed, File too large."},
    };
    bring_up("", false);
    const int descriptors = open_descriptors("self");
    for (const auto& frame : frames) {
        answer_with(frame.makes, "0");
        const LogCapture log;
        EXPECT_EQ(frame.result, dump()) << frame.makes;
        EXPECT_TRUE(log.has(std::string("[M/lcd_force_dump_error] ") + frame.message)) << frame.makes;
        EXPECT_EQ("", saved_frames()) << frame.makes;
    }
    EXPECT_EQ(descriptors, open_descriptors("self"));
}

TEST(Display, NothingIsAskedForThatCouldNotBeSaved) {
    bring_up("", false);
    answer_with(ONE_FRAME, "0");
    EXPECT_EQ(-1, dump(nullptr));
    set_commercial(true);
    EXPECT_EQ(-1, dump());
    set_commercial(false);
    ASSERT_EQ(0, rmdir("/data/hwcdump"));
    const LogCapture log;
    EXPECT_EQ(-1, dump());
    EXPECT_TRUE(log.has("unable to open dir: /data/hwcdump. error info:No such file or directory."));
    EXPECT_FALSE(exists(std::string("/dev/__properties__/") + ENABLE));
}

TEST(Display, AServiceThatCannotBeAskedIsReported) {
    bring_up("", false);
    const LogCapture log;
    run_without_processes([] { EXPECT_EQ(-1, dump()); });
    EXPECT_EQ(
        "[M/lcd_force_dump_error] system call dumpsys SurfaceFlinger failed. error:Resource temporarily "
        "unavailable.",
        log.lines().front());
    EXPECT_EQ("[M/lcd_force_dump_error] graphic dump timeout.", log.lines().back());
}
