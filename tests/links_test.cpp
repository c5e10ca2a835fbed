// Links that others place where the daemon, with root's rights, reads and writes: what they lead to is
// neither written, nor read, nor changed, and the reports are whole.
#include <unistd.h>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "output/record.h"
#include "output/upload.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

const std::string LOGS = std::string(LOG_DIR) + "/";
constexpr int32_t TIME = 1433153472;  // 2015-06-01 10:11:12 UTC

// What links lead to. Root's command writes it, others may read nothing of it.
constexpr char VICTIM[] = "/data/victim";

struct way {
    const char* what;
    std::string path;  // where the link stands
    bool commercial;
    void (*dumps)();
};

// On a day of its own: a commercial record is made once a day.
void report() {
    static int32_t day = 0;
    dmd_error_info info = make_error_info(20834, TIME + 86400 * ++day);
    dmd_direct_output("text", 4, &info, nullptr, DMD_OUTPUT_FULL);
}

void dump_touch_panel() {
    dmd_client* const panel = get_client_by_name("dsm_tp");
    EXPECT_EQ(0, dmd_force_dump_error(panel, 20005, 1, "on"));
    EXPECT_EQ(0, dmd_force_dump_error(panel, 20005, 1, "on"));
    EXPECT_EQ(0, dmd_force_dump_error(panel, 20005, 2, "on"));
}

void dump_audio() {
    for (const int slot : {0, 2}) {
        EXPECT_EQ(0, dmd_dump_error(get_client_by_name("dsm_audio"), 1, slot, "on"));
    }
}

const std::vector<way> WAYS = {
    {"a record file", LOGS + "dmd_record_0.txt", true, report},
    {"the commercial record", LOGS + "dmd_commercial_record.txt", true, report},
    {"the upload's description", LOGS + "apr_info.txt", true, report},
    {"an archive", LOGS + "dmd_dump_20834_101112.tar", false, report},
    {"a compressed archive", LOGS + "dmd_dump_20834_101112.tar.gz", false, report},
    {"the screenshot", LOGS + "tp_screencap.png", false, dump_touch_panel},
    {"the input service's state", "/data/dmd_temp.txt", false, dump_touch_panel},
    {"the codec's registers", "/data/zc8830dump.log", false, dump_audio},
    {"the media services' state", "/data/audio_policy.log", false, dump_audio},
    {"the same", "/data/audio_flinger.log", false, dump_audio},
    {"the same", "/data/audio.log", false, dump_audio},
    {"the same", "/data/media_player.log", false, dump_audio},
    {"the same", "/data/mediadump.log", false, dump_audio},
};

// Reports an error for which the client's folder is packed, and returns the names in its archive.
std::vector<std::string> archived_with(const char* client, int error_no) {
    report_error(client, error_no, "text");
    dmd_dump_error(get_client_by_name(client), error_no, 0, "on");
    return take_archived_beside_record();
}

}  // namespace

TEST(Links, NothingIsWrittenThroughOne) {
    setenv("TZ", "UTC", 1);
    bring_up("", false);
    for (const std::string link : {"ln -s ", "ln "}) {
        for (const way& w : WAYS) {
            SCOPED_TRACE(link + w.what);
            set_commercial(w.commercial);
            output_of("mkdir -p " + LOGS + "; rm -f " + LOGS +
                      "*; printf mine >/data/victim; chmod 600 /data/victim; " + link + VICTIM + " " +
                      w.path + " -f");
            forget_record_file();
            const LogCapture log;
            w.dumps();
            EXPECT_EQ("mine", read_file(VICTIM));
            EXPECT_EQ(0600U, mode_of(VICTIM));
            EXPECT_TRUE(
                log.has("[M/clear_place] " + w.path + " is not a plain file of this daemon - removed") ||
                (w.what == std::string("an archive") && log.has("cmd_line:rm " + w.path)));
            EXPECT_FALSE(exists(w.path) && !S_ISREG(status_of(w.path).st_mode));
            if (w.dumps == report) {
                EXPECT_EQ(1, count_of(read_file(RECORD), "[Content]:\ntext"));
                EXPECT_EQ(1, count_of(read_file(LOGS + "apr_info.txt"), "20834"));
            }
            unlink(w.path.c_str());
        }
    }
}

TEST(Links, NothingIsWrittenIntoAFileOfSomebodyElse) {
    setenv("TZ", "UTC", 1);
    bring_up("", false);
    for (const way& w : WAYS) {
        SCOPED_TRACE(w.what);
        set_commercial(w.commercial);
        output_of("mkdir -p " + LOGS + "; rm -f " + LOGS + "*; printf mine >" + w.path + "; chown 1000 " +
                  w.path);
        forget_record_file();
        w.dumps();
        const bool is_record = w.path == RECORD;
        EXPECT_EQ(is_record ? 1000U : 0U, exists(w.path) ? status_of(w.path).st_uid : 0U);
        EXPECT_EQ(is_record, read_file(w.path).find("mine") == 0) << "the reports of a record file are kept";
        unlink(w.path.c_str());
    }
}

// Without the command, the report lacks only what it would have brought.
TEST(Links, ACommandDoesNotRunIntoOneThatStays) {
    bring_up("", false);
    output_of(
        "cd /data; printf mine >/victim; ln -s /victim zc8830dump.log; mount -B . .; mount -o "
        "remount,bind,ro .");
    const LogCapture log;
    EXPECT_EQ(0, dmd_dump_error(get_client_by_name("dsm_audio"), 1, 0, "on"));
    EXPECT_TRUE(log.has("zc8830dump.log is not a plain file of this daemon - Read-only file system"));
    EXPECT_EQ("mine", read_file("/victim"));
}

// In a folder that cannot be changed; where the file system knows none, it is removed.
TEST(Links, NothingIsWrittenThroughOneThatStays) {
    setenv("TZ", "UTC", 1);
    set_commercial(false);
    const auto describe_upload = [] {
        const dmd_error_info info = make_error_info(1, TIME);
        write_apr_upload_info(&info);
    };
    const way ways[] = {
        {"a record file", RECORD, false, report},
        {"the upload's description", LOGS + "apr_info.txt", false, describe_upload},
        {"an archive", LOGS + "dmd_dump_20834_101112.tar", false, report},
    };
    for (const way& w : ways) {
        SCOPED_TRACE(w.what);
        output_of("mkdir -p " + LOGS + "victims; cd " + LOGS +
                  "; rm -f *.*; printf mine >victims/file; chmod 600 victims/file; touch dmd_record_0.txt; "
                  "ln -f victims/file " +
                  w.path + "; chattr +i . || :");
        forget_record_file();
        w.dumps();
        output_of("chattr -i " + LOGS + " || :");
        EXPECT_EQ("mine", read_file(LOGS + "victims/file"));
        EXPECT_EQ(0600U, mode_of(LOGS + "victims/file"));
    }
}

TEST(Links, NoFolderIsPackedThroughOne) {
    bring_up("", false);
    output_of(
        "mkdir -p /data/kvdx_logs /data/victims; touch /data/victims/secret; cd /data; ln -s victims "
        "tombstones; "
        "ln -s /data/victims kvdx_logs/charge_monitor");
    const LogCapture log;
    EXPECT_EQ(std::vector<std::string>{}, archived_with("dsm_charge_monitor", 1));
    EXPECT_EQ(std::vector<std::string>{}, archived_with("dsm_apcp", 20834));
    for (const std::string folder : {"/data/kvdx_logs/charge_monitor/", "/data/tombstones/"}) {
        EXPECT_TRUE(log.has("Ignore archive the file " + folder + ", Too many levels of symbolic links."));
    }
}

TEST(Links, NoImageAndNoFrameIsReadThroughOne) {
    const struct {
        const char* what;
        std::string links;
        int saved;  // frames, of one
    } cases[] = {
        {"an image",
         "mkdir ruvo_logs/memorydump/1; ln -s /data/victim ruvo_logs/memorydump/1/rdr.bin; "
         "touch -d 1day ruvo_logs/memorydump/1",
         1},
        {"an image's folder", "ln -s /data/victims ruvo_logs/memorydump/1; touch -d 1day victims", 1},
        {"the images' folder", "rmdir ruvo_logs/memorydump; ln -s /data/victims ruvo_logs/memorydump", 1},
        {"a frame beside another", "ln -s /data/victim hwcdump/b.bmp", 1},
        {"the frames' folder", "rmdir hwcdump; ln -s /data/victims hwcdump", 0},
    };
    bring_up("", false);
    replace_command("dumpsys",
                    "echo frame >/data/hwcdump/a.bmp; echo 0 >/dev/__properties__/debug.frame_dump_enable");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        output_of("cd /data; rm -rf victims ruvo_logs hwcdump " + LOGS +
                  "; mkdir -p victims ruvo_logs/memorydump hwcdump; "
                  "echo secret >victim; echo secret >victims/rdr.bin; echo secret >victims/x.bmp; " +
                  c.links);
        phone_do({"image", ""});
        dmd_dump_error(get_client_by_name("dsm_sensorhub"), 1, 0, "on");
        EXPECT_EQ(c.saved - 1, dmd_force_dump_error(get_client_by_name("dsm_lcd"), 2, 1, "on"));
        EXPECT_EQ(c.saved == 1 ? "frame\n" : "", output_of("cat " + LOGS + "*.gz 2>/dev/null | gzip -dcf"));
    }
}
