// Bug reports on disk: their text, the ring of record files, the archives and the commercial record.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "output/output_dir.h"
#include "output/record.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

constexpr int32_t TIME = 1433153472;  // 2015-06-01 10:11:12 UTC
constexpr char ARCHIVE[] = "/data/kvdx_logs/dmd_log/dmd_dump_20834_101112.tar.gz";

void report(const std::string& text, int mode, int error_no = 20834, int32_t time = TIME,
            const char* extra_files = nullptr) {
    dmd_error_info info = make_error_info(error_no, time);
    EXPECT_EQ(0, dmd_direct_output(text.data(), static_cast<int>(text.size()), &info, extra_files, mode));
}

const std::string HEAD =
    "\n========Device Bugreport========\n[Date]:2015-06-01\n[Time]:10:11:12\n[Device]:tpdev\n"
    "[Error no]:20834\n[Runing_test_switch]:on\n";

int uploads() {
    return count_of(read_file("/dev/log/exception"), "\n");
}

}  // namespace

TEST(Record, HoldsEachReportWhole) {
    setenv("TZ", "UTC", 1);
    set_commercial(true);
    const std::string long_line(700, 'p');
    replace_command("top", "printf '\\nhead\\n\\n%s\\n" + long_line + "\\n' \"$*\"");
    const LogCapture log;
    const std::string bytes("a\0b\n", 4);
    report(bytes, DMD_OUTPUT_SHORT);
    report("text", DMD_OUTPUT_FULL);
    report("bare", 0);
    EXPECT_EQ(HEAD + "[Content]:\n" + bytes + HEAD + "[Temperature]:null\n[Process]:\nhead\n-m 5 -n 1\n" +
                  long_line + "\n[Content]:\ntext" + "bare",
              read_file(record_path(0)));
    EXPECT_EQ(0644U, mode_of(record_path(0)));
    EXPECT_EQ(0, log.count("failed"));

    dmd_error_info info = make_error_info(1, TIME);
    EXPECT_EQ(-1, dmd_direct_output(nullptr, 1, &info, nullptr, 4));
    EXPECT_EQ(-1, dmd_direct_output("x", 1, nullptr, nullptr, 4));
    EXPECT_EQ(2, log.count("[M/dmd_direct_output] invalid pointer"));
}

// With no file chosen yet, the most recently modified one is; while one is current, only its size counts.
TEST(Record, TheLatestFileIsChosenOrTheOneBehindIt) {
    set_commercial(true);
    constexpr off_t LIMIT = 524288;
    const auto file = [](int index, off_t size, time_t time) {
        return output_file{"dmd_record_" + std::to_string(index) + ".txt", size, time};
    };
    struct {
        const char* what;
        std::vector<output_file> files;
        int index;
        bool truncated;
    } const cases[] = {
        {"none", {}, 0, false},
        {"the latest is under the limit", {file(1, LIMIT - 1, 200), file(3, LIMIT, 100)}, 1, false},
        {"the latest is full: the next is truncated", {file(2, LIMIT, 200), file(3, 77, 100)}, 3, true},
        {"from the last to the first", {file(3, LIMIT, 2), file(0, 9, 1)}, 0, true},
        {"full in the second in which the next was begun",
         {{"dmd_record_0.txt", 9, 300, 2}, {"dmd_record_3.txt", LIMIT, 300, 1}, {"dmd_record_1.txt", 5, 1}},
         0,
         false},
        {"a number beyond the ring", {file(7, 5, 300), file(0, 9, 1)}, 7, false},
        {"beyond the ring and full", {file(7, LIMIT, 300), file(0, 9, 1)}, 0, true},
        {"two digits stand for the first", {file(12, 5, 300), file(1, 9, 1)}, 1, false},
    };
    report("opens a file", DMD_OUTPUT_SHORT);
    for (const auto& c : cases) {
        const LogCapture log;
        output_of("rm -r /data/kvdx_logs");
        report("lost", DMD_OUTPUT_SHORT);
        EXPECT_TRUE(log.has("[M/dmd_direct_output] get " + std::string(LOG_DIR) + "/dmd_record_"));
        ASSERT_EQ(0, mkdir_parent());
        make_output_files(c.files);
        const std::string path = record_path(c.index);
        const off_t before = exists(path) && !c.truncated ? status_of(path).st_size : 0;
        report("kept", DMD_OUTPUT_SHORT);
        const std::string content = read_file(path);
        EXPECT_EQ(before, static_cast<off_t>(content.find("\n====="))) << c.what;
        EXPECT_EQ("kept", content.substr(content.size() - 4)) << c.what;
        for (const output_file& f : c.files) {
            const std::string other = std::string(LOG_DIR) + "/" + f.name;
            EXPECT_TRUE(other == path || status_of(other).st_size == f.size) << c.what;
        }
    }
}

TEST(Record, FilesFormARing) {
    set_commercial(true);
    const LogCapture log;
    for (const char filling : {'a', 'b', 'c', 'd', 'e'}) {
        report(std::string(524288, filling), DMD_OUTPUT_SHORT);
    }
    EXPECT_TRUE(log.has("[M/dmd_direct_output] output change to new file " + record_path(0)));
    const char left[] = {'e', 'b', 'c', 'd'};
    for (int index = 0; index < 4; ++index) {
        const std::string content = read_file(record_path(index));
        EXPECT_EQ(1, count_of(content, "[Content]:")) << index;
        EXPECT_EQ(left[index], content.back()) << index;
    }
}

// A clock that was ahead once, at any time, must not make an older file look like the latest.
TEST(Record, NoClockMakesItEraseWhatIsNewer) {
    set_commercial(true);
    const time_t next_year = time(nullptr) + 31536000;
    for (const int ahead : {0, 3, 7}) {  // the file that was filled then; 7 is beyond the ring
        SCOPED_TRACE(ahead);
        output_of("rm -rf /data/kvdx_logs");
        forget_record_file();
        ASSERT_EQ(0, mkdir_parent());
        make_output_files({{"dmd_record_" + std::to_string(ahead) + ".txt", 524288, next_year}});
        const std::string path = record_path((ahead + 1) % 4);
        for (const char* const text : {"first", "second", "third"}) {
            report(text, DMD_OUTPUT_SHORT);
            forget_record_file();
        }
        EXPECT_EQ(3, count_of(read_file(path), "[Content]:")) << "a start has erased some";
        report("fourth", DMD_OUTPUT_SHORT);
        set_file_time(record_path(ahead), next_year);  // as if the clock were set back now
        report("fifth", DMD_OUTPUT_SHORT);
        forget_record_file();
        report("sixth", DMD_OUTPUT_SHORT);
        EXPECT_EQ(6, count_of(read_file(path), "[Content]:"));
    }
}

TEST(Record, AClockSetBackDuringAReportErasesNothing) {
    set_commercial(true);
    ASSERT_EQ(0, mkdir_parent());
    make_output_files({{"dmd_record_0.txt", 524288, 100}});
    // What was now is in the future then.
    replace_command("top", "test -e /data/set || touch -d '1 hour' " + record_path(0) + "; touch /data/set");
    report("first", DMD_OUTPUT_FULL);
    forget_record_file();
    report("second", DMD_OUTPUT_SHORT);
    EXPECT_EQ(2, count_of(read_file(record_path(1)), "[Content]:"));
}

TEST(Record, ARotationThatFailsLeavesTheRingInOrder) {
    set_commercial(true);
    ASSERT_EQ(0, mkdir_parent());
    const time_t next_year = time(nullptr) + 31536000;
    for (const int index : {2, 1, 0}) {  // not in the order of their times
        make_output_files({{"dmd_record_" + std::to_string(index) + ".txt", 524288, next_year + index}});
    }
    ASSERT_EQ(0, mkdir(record_path(3).c_str(), 0700));
    report("lost", DMD_OUTPUT_SHORT);
    ASSERT_EQ(0, rmdir(record_path(3).c_str()));
    report("kept", DMD_OUTPUT_SHORT);
    EXPECT_EQ(1, count_of(read_file(record_path(3)), "[Content]:\nkept"));
    for (const int index : {0, 1, 2}) {
        EXPECT_EQ(524288, status_of(record_path(index)).st_size);
    }
}

// As somebody who makes room does it.
TEST(Record, AFileThatIsEmptiedHoldsNothingButReports) {
    setenv("TZ", "UTC", 1);
    set_commercial(true);
    report(std::string(524288, 'x'), DMD_OUTPUT_SHORT);
    report("rotated", DMD_OUTPUT_SHORT);
    ASSERT_EQ(0, truncate(record_path(1).c_str(), 0));
    report("text", DMD_OUTPUT_SHORT);
    EXPECT_EQ(HEAD + "[Content]:\ntext", read_file(record_path(1)));
}

TEST(Record, DebugBuildArchivesByMode) {
    setenv("TZ", "UTC", 1);
    set_commercial(false);
    report("short", DMD_OUTPUT_SHORT);
    EXPECT_FALSE(exists(ARCHIVE));
    EXPECT_NE(std::string::npos, read_file("/dev/log/exception").find("-i " + record_path(0)));

    umask(077);
    report("full", DMD_OUTPUT_FULL);
    EXPECT_EQ(0644U, mode_of(ARCHIVE));
    EXPECT_FALSE(exists("/data/kvdx_logs/dmd_log/dmd_dump_20834_101112.tar"));
    output_of("mkdir /data/android_logs && touch /data/android_logs/kmsgcat-log");
    report("bare", 1, 123456);
    EXPECT_EQ("data/kvdx_logs/dmd_log/dmd_record_0.txt\n",
              output_of("tar -tzf /data/kvdx_logs/dmd_log/dmd_dump_123456_101112.tar.gz"));

    std::string many;
    for (int word = 0; word < 20; ++word) {
        many += "/data/w ";
    }
    const int before = uploads();
    const LogCapture log;
    report("many", DMD_OUTPUT_FULL, 9, TIME, many.c_str());
    EXPECT_TRUE(log.has("[M/dmd_direct_output] invalid dmd tar compress cmd."));
    EXPECT_EQ(before, uploads());
    EXPECT_NE(std::string::npos, read_file(record_path(0)).find("[Content]:\nmany"));
}

TEST(Record, CommercialRecordIsMadeOnceADay) {
    setenv("TZ", "UTC", 1);
    set_commercial(true);
    struct {
        int error_no;
        int32_t time;
        bool recorded;
    } const reports[] = {
        {20834, TIME, true},          {20834, TIME + 3600, false}, {20835, TIME + 3600, true},
        {20834, TIME + 86399, false}, {20834, TIME + 86400, true}, {20834, TIME + 172799, false},
        {20834, TIME - 1, false},
    };
    // What the upload service would find is seen through the command that removes it.
    replace_command("rm", "cat \"$1\" >>/data/recorded; /bin/rm \"$1\"");
    const LogCapture log;
    int recorded = 0;
    for (const auto& r : reports) {
        const int synced = files_synced(), folder = recorded == 0 ? 1 : 0;
        report("text" + std::to_string(r.time), DMD_OUTPUT_FULL, r.error_no, r.time);
        recorded += r.recorded ? 1 : 0;
        EXPECT_EQ((r.recorded ? 4 : 2) + folder, files_synced() - synced)
            << "head and report; head and description; the folder of a new file";
        EXPECT_EQ(recorded, uploads()) << r.time;
        EXPECT_EQ(recorded, count_of(read_file("/data/recorded"), "[Content]:\ntext")) << r.time;
    }
    EXPECT_EQ(recorded, count_of(read_file("/data/recorded"), "[Process]:\n"));
    EXPECT_EQ(7, count_of(read_file(record_path(0)), "[Content]:\ntext"));
    EXPECT_EQ((std::vector<std::string>{"apr_info.txt", "dmd_record_0.txt"}), names_in(LOG_DIR));
    EXPECT_EQ(recorded, count_of(read_file("/dev/log/exception"),
                                 "-i /data/kvdx_logs/dmd_log/dmd_commercial_record.txt"));

    // The build is asked for again only when a record file is chosen.
    set_commercial(false);
    report("still commercial", 0, 1);
    EXPECT_FALSE(exists("/data/kvdx_logs/dmd_log/dmd_dump_00001_101112.tar.gz"));
}

TEST(Record, FailingCompressionLeavesALeftoverUntilTheNextReport) {
    setenv("TZ", "UTC", 1);
    set_commercial(false);
    const std::string tar = std::string(ARCHIVE, strlen(ARCHIVE) - 3);
    replace_command("gzip", "exit 1");
    LogCapture log;
    report("first", DMD_OUTPUT_FULL);
    EXPECT_TRUE(exists(tar));
    EXPECT_TRUE(log.has("[M/dmd_direct_output] chmod error  - No such file or directory"));
    EXPECT_EQ(1, uploads()) << "announced all the same";
    ASSERT_EQ(0, unlink("/system/bin/gzip"));
    log.clear();
    report("second", DMD_OUTPUT_FULL, 20834, TIME + 1);
    EXPECT_FALSE(exists(tar));
    EXPECT_TRUE(log.has("[M/secure_system] system cmd_line:rm " + tar + "."));
    EXPECT_EQ(0, log.count("chmod error"));
}

TEST(Record, AProcessListThatCannotBeHadIsReportedAndLeftOut) {
    setenv("TZ", "UTC", 1);
    set_commercial(true);
    const LogCapture log;
    run_without_processes([] { report("text", DMD_OUTPUT_FULL); });
    EXPECT_TRUE(log.has("[M/process_stat_write] process stat write failed, ignored..."));
    EXPECT_EQ(HEAD + "[Temperature]:null\n[Process]:\n[Content]:\ntext", read_file(record_path(0)));
}
