// Standalone dumps: what is kept, told and returned, and dumps that overlap.
#include <cstring>
#include <thread>
#include <tuple>

#include "output/compressed_dump.h"
#include "output/record.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

TEST(CompressedDump, KeepsWhatItIsGiven) {
    setenv("TZ", "XXX-1", 1);
    ASSERT_NE(nullptr, freopen("/dev/null", "r", stdin)) << "on a terminal, gzip would ask";
    ASSERT_EQ(0, system("mkdir -p /data/kvdx_logs/dmd_log; printf A >/data/a; printf B >/data/b"));
    dmd_error_info info = make_error_info(20834, 1433153472);  // 10:11:12 UTC
    const std::string stem = std::string(LOG_DIR) + "/dmd_dump_20834_111112", bytes("x\0y\n", 4);
    const std::string tar = "dmd_tar_cmd:dmd_tar.", txt = "dmd_tar_cmd:dmd_tar -cf " + stem + ".txt.";
    const std::string no_room = "no room in the archive command for /data/b";
    // Between two paths of 7 characters, it makes the longest list that the command's 767 characters hold.
    const std::string gap(767 - ("dmd_tar -cf " + stem + ".tar ").size() - 14, ' ');
    const std::string commercial =
        "umount -l $PWD; rmdir $PWD; echo 0 >/dev/__properties__/persist.sys.qelvan.debug.on";
    // What is done in the output directory; dump and type; result, mode and content of what is kept, a
    // message.
    const std::tuple<std::string, std::string, int, int, std::string, std::string> cases[] = {
        {"rmdir $PWD", bytes, 1, -1, "644\n" + bytes, txt},
        {":", "", 1, 0, "644\n", txt},
        {"echo old | gzip >" + stem + ".txt.gz", bytes, 1, 0, "644\nold\n", "compress error  - "},
        {"mkdir " + stem + ".txt", bytes, 1, 0, "", ""},
        {":", bytes, 2, 0, "", "unkown compress type."},
        {":", "/data/a /data/b", 0, 1, "644\nAB", tar},
        {":", "/data/none /data/b", 0, 0, "644\nB", tar},
        {":", "/data/a" + gap + "/data/b", 0, 1, "644\nAB", tar},
        {":", "/data/a " + gap + "/data/b", 0, 1, "644\nA", no_room},
        {":", gap + "       /data/a /data/b", 0, 1, "644\nA", no_room},
        {"mkdir " + stem + ".tar", "/data/a", 0, -13, "", "dmd tar file failed."},
        {"mount -t tmpfs -o size=8k none $PWD", std::string(9000, 'x'), 1, 0, "", "the dump in "},
        {commercial, bytes, 1, -1, "", "Ignored any appended dump action on commercial version product!"},
    };
    for (const auto& [before, buf, type, result, kept, message] : cases) {
        SCOPED_TRACE(before + " " + buf);
        ASSERT_EQ(0, system((std::string("cd ") + LOG_DIR + " && rm -rf * && " + before).c_str()));
        write_file("/dev/log/exception", "");
        umask(077);
        const LogCapture log;
        const int synced = files_synced();
        EXPECT_EQ(result, dmd_compress_output(buf.data(), static_cast<int>(buf.size()), &info, type));
        EXPECT_TRUE(kept.empty() || files_synced() - synced == (type == DUMP_PATHS ? 1 : 2))
            << "dump, description";
        EXPECT_EQ(!message.empty(), log.has("[M/dmd_compress_output] " + message));
        const std::string gz = stem + (type == DUMP_PATHS ? ".tar.gz" : ".txt.gz");
        const std::string unpack = "stat -c %a " + gz + "; gzip -dc " + gz + (type == 0 ? " | tar xO" : "");
        EXPECT_EQ(kept, exists(gz) ? output_of(unpack) : "");
        EXPECT_EQ(kept.empty() ? 0 : 1, count_of(read_file("/dev/log/exception"), " -i " + gz + " -d "));
    }
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
         "txt"},
        {"cleaning up at the limit",
         "trap 'rm $1.gz; touch /data/clean /data/hangs' TERM; echo part >$1.gz; touch /data/hangs; sleep "
         "1000 & wait",
         "txt"},
        {"killed by somebody else", "echo part >$1.gz; kill -9 $$", "txt"},
        {"done before the limit", "/bin/gzip $1; touch /data/hangs; sleep 1000", "gz"},
    };
    for (const auto& c : cases) {
        write_file("/system/bin/gzip", std::string("#!/bin/sh\n") + c.gzip + "\n");
        ASSERT_EQ(0, chmod("/system/bin/gzip", 0755));
        // The second to clean up takes as long as that does.
        hold_clock(strstr(c.gzip, "/data/clean") != nullptr ? 1000 : 0);
        dmd_error_info info = make_error_info(20834, 0);
        dmd_compress_output("x", 1, &info, DUMP_BYTES);
        EXPECT_EQ(c.left,
                  output_of(std::string("cd ") + LOG_DIR + "; printf %s dmd_dump_* | sed s/.*\\\\.//"))
            << c.what;
        EXPECT_EQ("x",
                  output_of(std::string("/bin/gzip -dcf ") + LOG_DIR + "/dmd_dump_*; rm " + LOG_DIR + "/*"))
            << c.what;
    }
    EXPECT_TRUE(exists("/data/clean")) << "it has a second for that, though its shell ends before";
}

// Standalone dumps come one after the other. No retention pass takes one, or a record file's archive, for a
// leftover while it is made.
TEST(CompressedDump, OverlappingDumpsLoseNothing) {
    setenv("TZ", "UTC", 1);  // otherwise tzset frees memory under a lock of its own, which no checker sees
    const std::string note = "echo $1 >>/data/order\n";
    write_file("/system/bin/gzip", "#!/bin/sh\n" + note + "/bin/gzip $1\n" + note);
    ASSERT_EQ(0, chmod("/system/bin/gzip", 0755));
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
