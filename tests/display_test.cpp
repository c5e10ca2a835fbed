// The dump of the display's frames: asking for them, waiting, and saving what was written meanwhile.
#include <thread>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "platform/text.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

const std::string ENABLE = "/dev/__properties__/debug.frame_dump_enable";

// Dumps of one number would wait for each other's second to pass.
int dump(const char* RT_switch = "on") {
    static int error_no = 20000;
    return dmd_force_dump_error(get_client_by_name("dsm_lcd"), ++error_no, 1, RT_switch);
}

// Has the graphics service run commands in an empty folder of frames, and set the property.
void answer_with(const std::string& commands, const std::string& property) {
    ASSERT_EQ(0, system("rm -rf /data/kvdx_logs /data/hwcdump/*"));
    const std::string note = "#!/bin/sh\ncd /dev/__properties__; echo $* $(grep -h . debug.*) >/data/asked\n";
    write_file("/system/bin/dumpsys",
               note + "cd /data/hwcdump; " + commands + "\necho " + property + " >" + ENABLE);
}

}  // namespace

TEST(Display, SavesEachFrameOnItsOwn) {
    bring_up("", false);
    {
        const MutexLock lock(client_names_lock);
        copy_text(get_client_by_name("dsm_lcd")->device_name, "lcddev");
    }
    ASSERT_EQ(0, mknod("/data/socket", S_IFSOCK | 0644, 0));
    const std::string frame = "echo x >x.bmp", timeout = "graphic dump timeout.";
    // What the graphics service sets and does, and the message of the failure. An empty frame is one.
    const std::vector<std::string> cases[] = {
        {"0", "touch bmp; touch -d @1 a.bmp; touch -d 1day b.bmp; sleep 1.1; echo c >c.bmp.x; sleep 1.1", ""},
        {"0", "echo a >a.bmp; echo b >b.bmp", ""},
        {"-1", frame, ""},
        {"abc", frame, ""},
        {"4294967295", frame, ""},
        {"2", frame, timeout},
        {"", frame, timeout},
        {"0", "ln -s none x.bmp", "get /data/hwcdump/x.bmp's information failed"},
        {"0", "mv ../socket x.bmp; touch x.bmp", "Unable to open /data/hwcdump/x.bmp-No such device"},
        {"0", "touch x.bmp", "graphics dumped file mmap failed, Invalid argument."},
        {"0", "mkfifo x.bmp", "graphics dumped file mmap failed, Invalid argument."},
        {"0", "truncate -s 2G x.bmp", "graphics dumped file mmap failed, File too large."},
    };
    const int descriptors = open_descriptors("self");
    for (const auto& c : cases) {
        const std::string &property = c[0], &commands = c[1], &failure = c[2];
        SCOPED_TRACE(property + ": " + commands);
        answer_with(commands, property);
        const LogCapture log;
        EXPECT_EQ(failure.empty() ? 0 : -1, dump());
        EXPECT_EQ(failure.empty() ? output_of("cd /data/hwcdump; cat $(ls -U)") : "",
                  output_of("cat /data/kvdx_logs/dmd_log/*.gz 2>/dev/null | gzip -dcf"));
        EXPECT_TRUE(log.has("[M/lcd_force_dump_error] " + failure));
        EXPECT_EQ(failure == timeout ? 60 : 0, log.count("] waiting for the graphics dump ..."));
    }
    EXPECT_EQ(descriptors, open_descriptors("self"));
    EXPECT_EQ("SurfaceFlinger 2 2 1\n", read_file("/data/asked"));

    answer_with(frame, "1");
    const unsigned int slept = seconds_slept();
    hold_sleeps();
    std::thread graphics([slept] {
        EXPECT_TRUE(wait_until([slept] { return seconds_slept() > slept; }));
        write_file(ENABLE, "0");
        let_a_sleep_pass();
    });
    EXPECT_EQ(0, dump());
    graphics.join();
    EXPECT_EQ(
        0U, read_file("/data/kvdx_logs/dmd_log/apr_info.txt").find("device_name\tlcddev\nerror_no\t20013\n"));

    ASSERT_EQ(0, system(("rm /data/asked " + ENABLE).c_str()));
    const LogCapture log;
    EXPECT_EQ(-1, dump(nullptr));
    set_commercial(true);
    EXPECT_EQ(-1, dump());
    set_commercial(false);
    EXPECT_EQ(0, system("rm -r /data/hwcdump"));
    EXPECT_EQ(-1, dump());
    EXPECT_FALSE(exists(ENABLE) || exists("/data/asked"));
    EXPECT_TRUE(log.has("unable to open dir: /data/hwcdump. error info:No such file or directory."));
}
