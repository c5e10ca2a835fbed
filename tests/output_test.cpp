// The output directory, commands, retention and upload information.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "output/dump_archive.h"
#include "output/output_dir.h"
#include "output/retention.h"
#include "output/shell_command.h"
#include "output/upload.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "tests/desk_calls.h"
#include "tests/log_capture.h"
#include "tests/phone_test.h"

namespace {

constexpr off_t MIB = 1024 * 1024;

std::string in_log_dir(const std::string& name) {
    return std::string(LOG_DIR) + "/" + name;
}

}  // namespace

TEST(OutputDir, IsCreatedLevelByLevel) {
    umask(077);
    ASSERT_EQ(0, mkdir("/data/kvdx_logs", 0700));
    EXPECT_EQ(0, mkdir_parent());
    EXPECT_EQ(0700U, mode_of("/data/kvdx_logs")) << "what exists is left as it is";
    EXPECT_EQ(0775U, mode_of(LOG_DIR));
    EXPECT_EQ(0, mkdir_parent());

    const UniqueFd fd(open_output_file(in_log_dir("f").c_str(), O_WRONLY | O_CREAT));
    EXPECT_TRUE(fd.valid());
    EXPECT_EQ(0644U, mode_of(in_log_dir("f")));
    EXPECT_NE(0, fcntl(fd.get(), F_GETFD) & FD_CLOEXEC);
}

TEST(OutputDir, FailuresAreLogged) {
    const LogCapture log;
    EXPECT_EQ(-1, open_output_file(nullptr, O_WRONLY));
    EXPECT_EQ(-1, open_output_file("/data/none/f", O_WRONLY | O_CREAT));
    EXPECT_TRUE(log.has("[M/open_output_file] unable to open /data/none/f - No such file or directory"));
    ASSERT_EQ(0, mkdir("/data/folder", 0700));
    EXPECT_EQ(-1, open_output_file("/data/folder", O_RDONLY));
    EXPECT_TRUE(log.has("[M/open_output_file] unable to open /data/folder - Stale file handle"));
    EXPECT_EQ(0700U, mode_of("/data/folder"));
    write_file("/data/kvdx_logs", "in the way");
    EXPECT_EQ(-1, mkdir_parent());
    EXPECT_TRUE(log.has("[M/mkdir_parent] mkdir /data/kvdx_logs/dmd_log - Not a directory"));
}

TEST(Commands, AnArchiveCommandIsSplit) {
    std::string longest = "dmd_tar -cf";
    for (int word = 2; word < MAX_COMMAND_WORDS; ++word) {
        longest += "\t w\r\n";
    }
    const struct {
        std::string text;
        bool valid;
        int words;
    } commands[] = {
        {"dmd_tar -cf  a.tar\n", true, 3}, {" dmd_tar -cf ", false, 2}, {"", false, 0}, {longest, true, 31},
        {longest + " w", false, 31},
    };
    for (const auto& command : commands) {
        const LogCapture log;
        std::string text = command.text;
        int argc = 0;
        char* argv[MAX_COMMAND_WORDS + 1] = {};
        EXPECT_EQ(command.valid ? 0 : -1, parse_command(text.data(), &argc, argv)) << command.text;
        EXPECT_EQ(command.words, argc) << command.text;
        EXPECT_EQ(nullptr, argv[argc]);
        EXPECT_EQ(command.valid, !log.has("[M/parse_command] invalid compress command:")) << command.text;
    }
}

TEST(Commands, RunInAKnownStateAndLeaveTheDaemons) {
    ASSERT_NE(nullptr, freopen("/dev/zero", "r", stdin));
    signal(SIGCHLD, SIG_IGN);  // so a shell's status could not be collected
    const LogCapture log;
    EXPECT_EQ(3, WEXITSTATUS(secure_system("exit 3")));
    EXPECT_TRUE(log.has("[M/secure_system] system cmd_line:exit 3."));
    EXPECT_EQ(SIGTERM, WTERMSIG(run_command("kill $$")));
    EXPECT_EQ(0, run_command("exec grep -q '^SigBlk:.0*$' /.phone/proc/self/status"));
    EXPECT_EQ(0, run_command("test $(umask) = 0022"));
    EXPECT_EQ(0, run_command("test $(readlink /proc/self/fd/0) = /dev/null"));
    EXPECT_EQ(SIG_IGN, signal(SIGCHLD, SIG_DFL));
}

TEST(Commands, WhatTheyLeaveRunningIsNotWaitedFor) {
    EXPECT_EQ(5, WEXITSTATUS(run_command("sleep 1000 & exit 5"))) << "in their group";
    EXPECT_EQ(6, WEXITSTATUS(run_command("setsid sleep 1000 & exit 6"))) << "out of it";
}

TEST(Commands, AStatusThatOthersTakeIsNotWaitedFor) {
    std::thread thief([] {
        EXPECT_TRUE(wait_until([] { return exists("/data/runs"); }));
        signal(SIGCHLD, SIG_IGN);
        write_file("/data/go", "");
    });
    EXPECT_EQ(-1, run_command("touch /data/runs; until test -e /data/go; do sleep 0.01; done"));
    thief.join();
}

TEST(Commands, WithoutADescriptorTheyStillDoNotReadWhatTheDaemonReads) {
    ASSERT_NE(nullptr, freopen("/dev/zero", "r", stdin));
    rlimit all = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &all));
    const rlimit few = {64, all.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    while (open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0) {
    }
    EXPECT_EQ(0, run_command("test $(readlink /proc/self/fd/0) = /dev/null"));
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &all));  // for what a sanitizer reads at the end
}

TEST(Commands, WithoutAShellTheyEndAsIfItHadFoundNone) {
    EXPECT_EQ(127, WEXITSTATUS(run_command("nowhere 2>&-")));
    ASSERT_EQ(0, mount("none", "/bin", "tmpfs", 0, nullptr));
    EXPECT_EQ(127, WEXITSTATUS(run_command("exit 0")));
}

TEST(Commands, AreEndedAtTheirLimit) {
    const struct {
        const char* what;
        std::string command;  // makes HANGS where it hangs
        int seconds;          // its limit
        int status;
    } cases[] = {
        {"it does what a signal says", "touch /data/hangs; exec sleep 1000", 300, SIGTERM},
        {"it cleans up first", "trap ': >/data/clean; exit 4' TERM; touch /data/hangs; sleep 1000 & wait", 10,
         4 << 8},
        {"only SIGKILL ends it", "trap '' TERM; touch /data/hangs; sleep 1000; sleep 1000", 300, SIGKILL},
    };
    for (const auto& c : cases) {
        const LogCapture log;
        EXPECT_EQ(c.status, run_command(c.command.c_str(), c.seconds)) << c.what;
        EXPECT_EQ(std::vector<std::string>{"[M/run_command] ended after " + std::to_string(c.seconds) +
                                           " seconds: " + c.command},
                  log.lines());
    }
    EXPECT_TRUE(exists("/data/clean"));
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "a child is left";
}

TEST(Retention, KeepsArchivesWithinTheirBound) {
    struct {
        const char* what;
        std::vector<output_file> files;
        std::vector<std::string> left;  // sorted
    } const cases[] = {
        {"exactly the limit",
         {{"dmd_dump_20001_000000.tar.gz", 5 * MIB, 100}, {"dmd_dump_20002_000000.txt.gz", 5 * MIB, 200}},
         {"dmd_dump_20001_000000.tar.gz", "dmd_dump_20002_000000.txt.gz"}},
        {"one byte more: the oldest goes, and only that",
         {{"dmd_dump_20001_000000.tar.gz", 5 * MIB + 1, 300},
          {"dmd_dump_20002_000000.txt.gz", 5 * MIB, 100},
          {"dmd_dump_-0003_000000.tar.gz", 0, 200}},
         {"dmd_dump_-0003_000000.tar.gz", "dmd_dump_20001_000000.tar.gz"}},
        {"of one second the oldest too",
         {{"dmd_dump_20001_000000.tar.gz", 5 * MIB, 100, 2},
          {"dmd_dump_20002_000000.tar.gz", 5 * MIB, 100, 1},
          {"dmd_dump_20003_000000.tar.gz", 5 * MIB, 100, 3}},
         {"dmd_dump_20001_000000.tar.gz", "dmd_dump_20003_000000.tar.gz"}},
        {"a leftover goes, and its archive counts for both entries",
         {{"dmd_dump_20001_000000.tar", 10, 100},
          {"dmd_dump_20001_000000.tar.gz", 6 * MIB, 100},
          {"dmd_dump_20002_000000.txt", 10, 100}},
         {}},
        {"names too long to be read back are neither counted nor deleted",
         {{"dmd_dump_200001_000000.tar.gz", 20 * MIB, 100}, {"dmd_dump_200001_000000.tar", 1, 100}},
         {"dmd_dump_200001_000000.tar", "dmd_dump_200001_000000.tar.gz"}},
        {"other files do not count",
         {{"dmd_record_0.txt", 20 * MIB, 100}, {"apr_info.txt", 1, 100}, {"dmd_dump_", 20 * MIB, 100}},
         {"apr_info.txt", "dmd_dump_", "dmd_record_0.txt"}},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(0, system("rm -rf /data/kvdx_logs"));
        ASSERT_EQ(0, mkdir_parent());
        make_output_files(c.files);
        const LogCapture log;
        const int descriptors = open_descriptors("self");
        EXPECT_EQ(0, check_compress_file()) << c.what;
        EXPECT_EQ(c.left, names_in(LOG_DIR)) << c.what;
        EXPECT_EQ(descriptors, open_descriptors("self"));
    }
}

TEST(Retention, ArchivesFromAClockThatWasAheadGoFirst) {
    ASSERT_EQ(0, mkdir_parent());
    const time_t next_year = time(nullptr) + 31536000;
    for (const std::string number : {"20001", "20002", "20003", "20004"}) {
        make_output_files({{"dmd_dump_" + number + "_000000.tar.gz", 5 * MIB, next_year}});
    }
    for (const char* const newest : {"dmd_dump_30001_000000.tar.gz", "dmd_dump_30002_000000.tar.gz"}) {
        EXPECT_EQ(0, check_compress_file());
        make_sparse_file(in_log_dir(newest), 5 * MIB);
    }
    EXPECT_EQ(0, check_compress_file());
    EXPECT_EQ(0, check_compress_file());
    EXPECT_EQ((std::vector<std::string>{"dmd_dump_30001_000000.tar.gz", "dmd_dump_30002_000000.tar.gz"}),
              names_in(LOG_DIR));
}

TEST(Retention, WhatIsNoFileCostsNoCommand) {
    ASSERT_EQ(0, mkdir_parent());
    ASSERT_EQ(0, mkdir(in_log_dir("dmd_dump_20001_000000.tar").c_str(), 0700));
    ASSERT_EQ(0, mkfifo(in_log_dir("dmd_dump_20002_000000.txt").c_str(), 0600));
    LogCapture log;
    EXPECT_EQ(0, check_compress_file());
    EXPECT_EQ(0, log.count("system cmd_line"));

    ASSERT_EQ(0, mkdir(in_log_dir("dmd_dump_20003_000000.tar.gz").c_str(), 0700));
    set_file_time(in_log_dir("dmd_dump_20003_000000.tar.gz"), 1);
    make_output_files({{"dmd_dump_20004_000000.tar.gz", 11 * MIB, 100}});
    EXPECT_EQ(0, check_compress_file());
    EXPECT_FALSE(exists(in_log_dir("dmd_dump_20004_000000.tar.gz"))) << "a folder is no archive";
}

// The other road's dump waits only where it has that very name.
TEST(Retention, RemovingALeftoverHoldsNoOtherDumpUp) {
    ASSERT_EQ(0, mkdir_parent());
    make_output_files({{"dmd_dump_20001_000000.tar", 1, 100}});
    replace_command("rm",
                    "touch /data/removing; until test -e /data/go; do sleep 0.01; done; exec /bin/rm $1");
    std::thread pass([] { EXPECT_EQ(0, check_compress_file()); });
    ASSERT_TRUE(wait_until([] { return exists("/data/removing"); }));
    { const DumpInProgress other(in_log_dir("dmd_dump_20002_000000.tar").c_str()); }
    std::thread same([] {
        const DumpInProgress dump(in_log_dir("dmd_dump_20001_000000.tar").c_str());
        EXPECT_FALSE(exists(in_log_dir("dmd_dump_20001_000000.tar"))) << "it would go with the leftover";
    });
    write_file("/data/go", "");
    pass.join();
    same.join();
}

TEST(Retention, NoNameReachesTheShellUninspected) {
    ASSERT_EQ(0, mkdir_parent());
    ASSERT_EQ(0, chdir("/data"));
    const std::vector<std::string> foreign = {"dmd_dump_$(touch${IFS}x)",
                                              "dmd_dump_;touch x;a.tar",
                                              "dmd_dump_`touch x`",
                                              "dmd_dump_20001_00 000.tar",
                                              "dmd_dump_            x",
                                              "dmd_dump_20001_000000\xc3\xa9",
                                              "dmd_dump_a\nb"};
    for (const std::string& name : foreign) {
        make_sparse_file(in_log_dir(name), 11 * MIB);
    }
    make_sparse_file(in_log_dir("dmd_dump_x.gz"), 11 * MIB);
    make_sparse_file("/data/x.gz", 1);
    const LogCapture log;
    EXPECT_EQ(0, check_compress_file());
    EXPECT_EQ(static_cast<int>(foreign.size()), log.count("[M/check_compress_file] leave dmd_dump_"));
    EXPECT_EQ(foreign.size() + 1, names_in(LOG_DIR).size());
    EXPECT_FALSE(exists("/data/x"));
    EXPECT_TRUE(exists("/data/x.gz"));
    EXPECT_EQ(0, log.count("system cmd_line"));
}

TEST(Upload, DescribesTheErrorAndFilesTheRequest) {
    setenv("TZ", "UTC", 1);
    ASSERT_EQ(0, mkdir_parent());
    struct {
        const char* device;
        int error_no;
        const char* error_text;
        const char* tag;
    } const cases[] = {
        {"tpdev", 20834, "20834", "DMD-tpdev"},
        {"twenty_characters_xx", 7, "    7", "DMD-twenty_char"},
        {"", 1234567, "1234567", "DMD-"},
        {"a b;`c`$d", 8, "    8", "DMD-a b;`c`$d"},
    };
    std::string expected_log;
    for (const auto& c : cases) {
        dmd_error_info info = make_error_info(c.error_no, 1433153472);  // 2015-06-01 10:11:12
        snprintf(info.device_name, sizeof info.device_name, "%s", c.device);
        memcpy(info.ic_name, "abcd", 4);
        const LogCapture log;
        dmd_file_upload("/data/f.gz", &info);
        EXPECT_EQ(std::string("device_name\t") + c.device + "\nerror_no\t" + c.error_text +
                      "\nIC_name\tabcd\nmodule_name\tofl\n",
                  read_file(in_log_dir("apr_info.txt")));
        const std::string command =
            "archive -i /data/f.gz -d /data/kvdx_logs/dmd_log/apr_info.txt -o "
            "20150601101112_" +
            std::string(c.error_no == 8 ? "DMD-a_b__c__d" : c.tag) + " -z zip";
        EXPECT_TRUE(log.has("[M/dmd_file_upload] tag:" + std::string(c.tag) + ", cmd_line:" + command + "."));
        expected_log += std::string(c.tag) + "\t0\tcommand\t" + command + "\n";
    }
    EXPECT_EQ(expected_log, read_file("/dev/log/exception"));
    EXPECT_EQ(0660U, mode_of(in_log_dir("apr_info.txt")));
    EXPECT_EQ(0U, umask(022)) << "files made after the first upload get exactly the modes given";
}

TEST(Upload, TwoAtATimeDoNotMixTheirLines) {
    ASSERT_EQ(0, mkdir_parent());
    const auto upload = [](int error_no, const char* device) {
        dmd_error_info info = make_error_info(error_no, 0);
        snprintf(info.device_name, sizeof info.device_name, "%s", device);
        EXPECT_TRUE(write_apr_upload_info(&info));
        return read_file(in_log_dir("apr_info.txt"));
    };
    const std::string one = upload(1, "a"), other = upload(200000, "a_long_name_of_a_device");
    for (int i = 0; i < 300; ++i) {
        std::thread thread(upload, 1, "a");
        upload(200000, "a_long_name_of_a_device");
        thread.join();
        const std::string left = read_file(in_log_dir("apr_info.txt"));
        ASSERT_TRUE(left == one || left == other) << left;
    }
}

TEST(Upload, StopsWithoutTheDirectory) {
    const dmd_error_info info = make_error_info(1, 0);
    const LogCapture log;
    dmd_file_upload("/data/f.gz", &info);
    EXPECT_EQ(1, log.count("apr_info.txt.error:No such file or directory."));
    EXPECT_TRUE(log.has("[M/dmd_file_upload] apr info file write failed!"));
    EXPECT_FALSE(exists("/dev/log/exception"));
}
