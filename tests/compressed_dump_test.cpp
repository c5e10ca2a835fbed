// Standalone dumps: what is kept, told and returned, and dumps that overlap.
#include <algorithm>
#include <cstring>
#include <thread>

#include "output/compressed_dump.h"
#include "output/record.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

const std::string STEM = std::string(LOG_DIR) + "/dmd_dump_20834_111112";

// Dumps into a folder for which the script has done what it does. The name tells the time in that zone.
int dump(const std::string& script, const std::string& buffer, int type) {
    setenv("TZ", "XXX-1", 1);
    EXPECT_NE(nullptr, freopen("/dev/null", "r", stdin)) << "on a terminal, gzip would ask";
    output_of(std::string("mkdir -p ") + LOG_DIR + "; cd " + LOG_DIR + "; rm -rf *; " + script);
    write_file("/dev/log/exception", "");
    umask(077);
    dmd_error_info info = make_error_info(20834, 1433153472);  // 10:11:12 UTC
    return dmd_compress_output(buffer.data(), static_cast<int>(buffer.size()), &info, type);
}

}  // namespace

TEST(CompressedDump, KeepsWhatItIsGiven) {
    const std::string bytes("x\0y\n", 4), text = STEM + ".txt.gz";
    const std::string told = "dmd_tar_cmd:dmd_tar -cf " + STEM + ".txt.", packed = "dmd_tar_cmd:dmd_tar.";
    const std::string no_room = "no room in the archive command for /data/b";
    // Between two paths of 7 characters, it makes the longest list that the command's 767 characters hold.
    const std::string gap(767 - ("dmd_tar -cf " + STEM + ".tar ").size() - 14, ' ');
    const struct {
        const char* what;
        std::string script, buffer;
        int type, result;  // of the archive: 1 when all was packed
        std::string kept, message;
    } cases[] = {
        {"bytes, without the directory", "rmdir $PWD", bytes, DUMP_BYTES, -1, bytes, told},
        {"no bytes", "true", "", DUMP_BYTES, 0, "", told},
        {"one of the same second", "echo old | gzip >" + text, bytes, DUMP_BYTES, 0, "old\n",
         "compress error  - "},
        {"one of another day", "echo old | gzip >" + text + "; touch -d 2015-05-31 " + text, bytes,
         DUMP_BYTES, 0, bytes, told},
        {"paths", "true", "/data/a /data/b", DUMP_PATHS, 1, "AB", packed},
        {"one that is missing", "true", "/data/none /data/b", DUMP_PATHS, 0, "B", packed},
        {"the longest list", "true", "/data/a" + gap + "/data/b", DUMP_PATHS, 1, "AB", packed},
        {"one blank more", "true", "/data/a " + gap + "/data/b", DUMP_PATHS, 1, "A", no_room},
        {"a longer list", "true", gap + "       /data/a /data/b", DUMP_PATHS, 1, "A", no_room},
    };
    write_file("/data/a", "A");
    write_file("/data/b", "B");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const bool archive = c.type == DUMP_PATHS;
        const std::string file = archive ? STEM + ".tar.gz" : text;
        const LogCapture log;
        const int synced = files_synced();
        EXPECT_EQ(c.result, dump(c.script, c.buffer, c.type));
        EXPECT_EQ(archive ? 3 : 4, files_synced() - synced)
            << "the bytes; the compressed dump, its folder and its description";
        EXPECT_EQ(c.kept, output_of((archive ? "tar -xzOf " : "gzip -dc ") + file));
        EXPECT_EQ(0644U, mode_of(file));
        EXPECT_EQ(1, count_of(read_file("/dev/log/exception"), " -i " + file + " -d "));
        EXPECT_TRUE(log.has("[M/dmd_compress_output] " + c.message));
    }
}

TEST(CompressedDump, WhatCannotBeDumpedIsReported) {
    const struct {
        const char* what;
        std::string script, buffer;
        int type, result;
        std::string message;
    } cases[] = {
        {"a folder has the name", "mkdir " + STEM + ".txt", "x", DUMP_BYTES, 0,
         "[M/open_output_file] unable to open " + STEM + ".txt - "},
        {"a folder has the archive's name", "mkdir " + STEM + ".tar", "/data", DUMP_PATHS, -13,
         "[M/dmd_compress_output] dmd tar file failed."},
        {"no such type", "true", "x", 2, 0, "[M/dmd_compress_output] unkown compress type."},
        {"the disk is full", "mount -t tmpfs -o size=8k none $PWD", std::string(9000, 'x'), DUMP_BYTES, 0,
         "[M/tell_lost] the dump in " + STEM + ".txt is cut or lost - No space left on device"},
        {"a commercial build", "echo 0 >/dev/__properties__/persist.sys.qelvan.debug.on", "x", DUMP_BYTES, 0,
         "[M/dmd_compress_output] Ignored any appended dump action on commercial version product!"},
    };
    for (const auto& c : cases) {
        const LogCapture log;
        EXPECT_EQ(c.result, dump(c.script, c.buffer, c.type)) << c.what;
        EXPECT_TRUE(log.has(c.message)) << c.what;
        EXPECT_FALSE(exists(STEM + ".txt.gz") || exists(STEM + ".tar.gz")) << c.what;
    }
    dmd_error_info info = make_error_info(1, 0);
    EXPECT_EQ(-1, dmd_compress_output(nullptr, 1, &info, DUMP_BYTES));
    EXPECT_EQ(-1, dmd_compress_output("x", 1, nullptr, DUMP_BYTES));
}

TEST(CompressedDump, NoPartOfOneStays) {
    const struct {
        const char* what;
        const char* gzip;  // what it does
        const char* left;  // of the dump
    } cases[] = {
        {"killed at the limit", "trap '' TERM; echo part >$1.gz; touch /data/hangs; sleep 1000; sleep 1000",
         ".txt"},
        {"killed by somebody else", "echo part >$1.gz; kill -9 $$", ".txt"},
        {"done before the limit", "/bin/gzip $1; touch /data/hangs; sleep 1000", ".txt.gz"},
        // The second that it has takes as long as the cleaning up does.
        {"cleaning up at the limit, though its shell ends before",
         "trap 'rm $1.gz; touch /data/clean /data/hangs' TERM; echo part >$1.gz; touch /data/hangs; sleep "
         "1000 & wait",
         ".txt"},
    };
    for (const auto& c : cases) {
        replace_command("gzip", c.gzip);
        hold_clock(strstr(c.gzip, "/data/clean") != nullptr ? 1000 : 0);
        dump("true", "x", DUMP_BYTES);
        std::vector<std::string> left = names_in(LOG_DIR);
        EXPECT_EQ(1, std::count(left.begin(), left.end(), STEM.substr(sizeof LOG_DIR) + c.left)) << c.what;
        EXPECT_EQ("x", output_of("/bin/gzip -dcf " + STEM + "*")) << c.what;
    }
    EXPECT_TRUE(exists("/data/clean"));
}

// Standalone dumps come one after the other. No retention pass takes one, or a record file's archive, for a
// leftover while it is made.
TEST(CompressedDump, OverlappingDumpsLoseNothing) {
    setenv("TZ", "UTC", 1);  // otherwise tzset frees memory under a lock of its own, which no checker sees
    const std::string note = "echo $1 >>/data/order\n";
    replace_command("gzip", note + "/bin/gzip $1\n" + note);
    const LogCapture log;
    const auto make_dumps = [](int first) {
        for (int i = first; i < first + 20; ++i) {
            dmd_error_info info = make_error_info(i, 0);
            dmd_compress_output("x", 1, &info, DUMP_BYTES);
            dmd_direct_output("x", 1, &info, nullptr, 1);
        }
    };
    std::thread other(make_dumps, 10000), another(make_dumps, 20000);
    make_dumps(30000);
    other.join();
    another.join();
    EXPECT_EQ(122U, names_in(LOG_DIR).size()) << "120 dumps, the record file, the upload's description";
    EXPECT_EQ("60\n", output_of("grep txt /data/order | uniq | wc -l"));
}
