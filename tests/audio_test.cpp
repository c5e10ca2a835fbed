// The audio dumps: what they run, pack and remove.
#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <future>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

#define IMAGES "data/ruvo_logs/memorydump/"
#define HIFI_LOGS "data/ruvo_logs/hifi_log/"
#define CODEC_LOGS "data/ruvo_logs/zc8830_log/"

using files = std::vector<std::string>;

const files CODEC_DUMP = {"data/zc8830dump.log"};
const files MEDIA_LOGS = {"data/audio_policy.log", "data/audio_flinger.log", "data/audio.log",
                          "data/media_player.log", "data/mediadump.log"};
const files RESET_FILES = {HIFI_LOGS "hifi.log", HIFI_LOGS "hifi.bin", CODEC_LOGS "zc8830_ocram.bin",
                           CODEC_LOGS "zc8830_reg.bin", CODEC_LOGS "zc8830_tcm.bin"};

files sorted(const std::vector<files>& parts) {
    files all;
    for (const files& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    std::sort(all.begin(), all.end());
    return all;
}

void make_files(const files& names) {
    for (const std::string& name : names) {
        output_of("mkdir -p '/" + name.substr(0, name.rfind('/')) + "'; touch '/" + name + "'");
    }
}

int dump(const char* client, int slot) {
    return dmd_dump_error(get_client_by_name(client), 7, slot, "on");
}

// The one of the names that the directory lists last.
std::string last_listed(const std::string& directory, const files& names) {
    std::string last;
    const UniqueDir dir(opendir(directory.c_str()));
    while (const dirent* const entry = readdir(dir.get())) {
        if (std::count(names.begin(), names.end(), entry->d_name) > 0) {
            last = entry->d_name;
        }
    }
    return last;
}

}  // namespace

TEST(Audio, StateIsWrittenToFiles) {
    bring_up("", false);
    replace_command("cat", "echo cat $* >>/data/commands.log\nexec /bin/cat $*");
    const auto dump_all = [] {
        for (const int slot : {0, 1, 2}) {
            EXPECT_EQ(0, dump("dsm_audio", slot));
        }
        return read_file("/data/commands.log");
    };
    const std::string commands = dump_all();
    EXPECT_EQ(0U, commands.find("cat /sys/kernel/debug/zc8830/rh\ncat /proc/hifidebug/dspdumplog\n"
                                "dumpsys media.audio_policy\ndumpsys media.audio_flinger\ndumpsys audio\n"
                                "dumpsys media.player\ndebuggerd -b "));
    EXPECT_EQ(read_file("/sys/kernel/debug/zc8830/rh"), read_file("/data/zc8830dump.log"));
    for (const std::string& name : MEDIA_LOGS) {
        EXPECT_NE("", read_file("/" + name)) << name;
    }
    set_commercial(true);
    EXPECT_EQ(commands, dump_all()) << "a commercial build runs none";
}

TEST(Audio, TheMediaServerListedLastIsDumped) {
    bring_up("", false);
    output_of("cd /proc; rm -r $(grep -ls '^Name:.mediaserver$' [0-9]*/status | cut -d/ -f1)");
    EXPECT_EQ(0, dump("dsm_audio", 2));
    EXPECT_EQ(1, count_of(read_file("/data/commands.log"), "debuggerd -b\n")) << "there is none";
    // Where the newest are listed first, those come last that are none.
    output_of("cd /proc; mkdir 4242 4243 424x 4240 4241");
    write_file("/proc/4240/status", "Name:\tmediaserver\n");
    write_file("/proc/4241/status", "Name:\tmediaserver\nState: S");
    write_file("/proc/4242/status", "Name:\tmediaserverd\n");
    write_file("/proc/4243/status", "Name:\n mediaserver\n");
    write_file("/proc/424x/status", "Name:\tmediaserver\n");
    EXPECT_EQ(0, dump("dsm_audio", 2));
    const std::string last = last_listed("/proc", {"4240", "4241"});
    EXPECT_EQ(1, count_of(read_file("/data/commands.log"), "debuggerd -b " + last + "\n"));
}

TEST(Audio, ReportsCarryTheirFilesAndRemoveWhatWasMadeForThem) {
    const files soc_images = {IMAGES "m/hifi3.bin", IMAGES "m/hifi3_ocram.bin", IMAGES "m/hifi3_tcm.bin"};
    const files codec_images = {IMAGES "m/zc8830_reg.bin", IMAGES "m/zc8830_ocram.bin",
                                IMAGES "m/zc8830_tcm.bin"};
    const files log = {HIFI_LOGS "m/hifi.log"};
    const struct {
        const char* client;
        int slot;
        files stay, go;
        unsigned int searched_for;  // folders, each after five seconds
    } reports[] = {
        {"dsm_audio", 3, {}, {}, 0},
        {"dsm_audio", 4, sorted({log, RESET_FILES}), sorted({CODEC_DUMP, MEDIA_LOGS}), 1},
        {"dsm_audio", 5, sorted({soc_images, log}), {}, 2},
        {"dsm_audio", 6, sorted({codec_images, RESET_FILES}), {}, 1},
        {"dsm_anc_hs", 0, {}, CODEC_DUMP, 0},
        {"dsm_maxim_smartpa", 1, {}, CODEC_DUMP, 0},
    };
    bring_up("", false);
    for (const auto& r : reports) {
        SCOPED_TRACE(std::string(r.client) + " " + std::to_string(r.slot));
        make_files(sorted({r.stay, r.go}));
        report_error(r.client, 7, "text");
        const unsigned int slept = seconds_slept();
        EXPECT_EQ(0, dump(r.client, r.slot));
        EXPECT_EQ(5 * r.searched_for, seconds_slept() - slept);
        EXPECT_EQ(sorted({r.stay, r.go}), take_archived_beside_record());
        make_files(r.go);
        phone_do({"reset"});
        EXPECT_EQ(0, dump(r.client, r.slot)) << "with nothing to report";
        for (const std::string& name : r.go) {
            EXPECT_FALSE(exists("/" + name)) << name;
        }
        for (const std::string& name : r.stay) {
            EXPECT_TRUE(exists("/" + name)) << name;
        }
    }
}

TEST(Audio, ImagesComeFromTheLastFolderThatAListCanHold) {
    bring_up("", false);
    ASSERT_EQ(0, chdir("/data"));
    make_files({"data/hifi3.bin", "data/hifi.log"});
    report_error("dsm_audio", 7, "text");
    EXPECT_EQ(0, dump("dsm_audio", 5));
    EXPECT_EQ((files{"hifi.log", "hifi3.bin"}), take_archived_beside_record()) << "without a folder";

    // The last ones in most file systems' order are those that will not do.
    output_of("mkdir -p /" IMAGES "without");
    make_files({IMAGES + std::string(130, 'x') + "/hifi3.bin", IMAGES "with blank/hifi3.bin",
                IMAGES "a/hifi3.bin", IMAGES "b/hifi3.bin", IMAGES "c/hifi3.bin"});
    report_error("dsm_audio", 7, "text");
    const LogCapture log;
    EXPECT_EQ(0, dump("dsm_audio", 5));
    EXPECT_EQ((files{IMAGES + last_listed("/" IMAGES, {"a", "b", "c"}) + "/hifi3.bin", "hifi.log"}),
              take_archived_beside_record());
    EXPECT_EQ(2, log.count("[M/find_dump_file_dir] leave /" IMAGES));
}

TEST(Audio, ImagesAreWaitedForUnderTheClientsLock) {
    bring_up("", false);
    dmd_client* const audio = get_client_by_name("dsm_audio");
    report_error("dsm_audio", 7, "text");
    hold_sleeps();
    auto dumped = std::async(std::launch::async, dump, "dsm_audio", 6);
    EXPECT_TRUE(wait_until([] { return seconds_slept() == 5; }));
    EXPECT_NE(0, pthread_mutex_trylock(&audio->mutex.handle));
    make_files({IMAGES "a/zc8830_reg.bin"});
    let_a_sleep_pass();
    EXPECT_EQ(0, dumped.get());
    EXPECT_EQ(files{IMAGES "a/zc8830_reg.bin"}, take_archived_beside_record());
}
