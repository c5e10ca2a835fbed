// The words of the archive tool's command line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/owned.h"
#include "tar/tar_main.h"
#include "tests/log_capture.h"
#include "tests/phone_test.h"

namespace {

struct WordsCase {
    std::vector<std::string> words;
    int result;
    std::string archive;  // the only new file, or none
    std::string members;  // as the system's tar lists them
    int second_f;         // messages about more than one 'f'
};

}  // namespace

TEST(TarMain, ReadsItsWords) {
    ASSERT_EQ(0, mkdir("/data/w", 0755));
    ASSERT_EQ(0, chdir("/data/w"));
    const WordsCase cases[] = {
        {{"dmd_tar"}, -22, "", "", 0},
        {{"dmd_tar", "-cf"}, -22, "", "", 0},
        {{"dmd_tar", "-cf", "a.tar"}, -14, "", "", 0},
        {{"dmd_tar", "-cf", "a.tar", "../x", "../y"}, 1, "a.tar", "../x\n../y\n", 0},
        {{"dmd_tar", "cvzf", "a.tar", "../x"}, 1, "a.tar", "../x\n", 0},
        {{"", "fc", "a.tar", "../x", "../none"}, 0, "a.tar", "../x\n", 0},
        {{"dmd_tar", "-c", "../x", "../y"}, 1, "-", "../x\n../y\n", 0},
        {{"dmd_tar", "-ffc", "a.tar", "../x", "../y"}, 1, "a.tar", "../y\n", 1},
        {{"dmd_tar", "-cff", "-", "../x", "../y"}, 1, "-", "../y\n", 0},
        {{"dmd_tar", "-fffffffffc", "a.tar", "../x"}, -14, "", "", 8},
        {{"dmd_tar", "-cf", "/data/none/a.tar", "../x"}, -13, "", "", 0},
        {{"dmd_tar", "-xcf", "a.tar", "../x"}, -1, "", "", 0},
        {{"dmd_tar", "-cxf", "a.tar", "../x"}, -1, "", "", 0},
        {{"dmd_tar", "-f", "a.tar", "../x"}, -1, "", "", 0},
        {{"dmd_tar", "", "a.tar", "../x"}, -1, "", "", 0},
        {{"dmd_tar", "-xf", "none"}, -1, "", "", 0},
    };
    write_file("/data/x", "x");
    write_file("/data/y", "y");
    for (const WordsCase& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const LogCapture log;
        std::vector<std::string> words = c.words;
        std::vector<char*> argv = pointers_to(&words);
        char beyond[] = "../y";
        argv.resize(argv.size() + 16, beyond);  // what must not be taken for operands
        EXPECT_EQ(c.result, dmd_tar_main(static_cast<int>(words.size()), argv.data()));
        EXPECT_EQ(c.result == -22 ? 1 : 0, log.count("[M/dmd_tar_main] arg count less than expected!"));
        EXPECT_EQ(c.second_f, log.count("[M/dmd_tar_main] Only one 'f' option allowed"));
        const std::vector<std::string> none;
        EXPECT_EQ(c.archive.empty() ? none : std::vector<std::string>{c.archive}, names_in("/data/w"));
        if (!c.archive.empty()) {
            EXPECT_EQ(c.members, output_of("tar -tPf ./" + c.archive));
            EXPECT_EQ(0644U, status_of(c.archive).st_mode & 07777U);
            EXPECT_EQ(0, unlink(c.archive.c_str()));
        }
    }
}

TEST(TarMain, Extracts) {
    write_file("/data/x", "x");
    write_file("/data/y", std::string(30000, 'y'));
    ASSERT_EQ(0, mkdir("/data/w", 0755));
    ASSERT_EQ(0, chdir("/data"));
    output_of("tar --format=ustar -cf /data/a.tar x y");
    ASSERT_EQ(0, mkfifo("/data/fifo", 0600));
    ASSERT_EQ(0, chdir("/data/w"));
    const std::vector<std::string> none;
    const struct {
        std::vector<std::string> words;
        int result;
        std::vector<std::string> made;
        std::string message;
    } cases[] = {
        {{"dmd_tar", "-xf", "../a.tar"}, 1, {"x", "y"}, ""},
        {{"dmd_tar", "xvf", "../a.tar", "y"}, 1, {"y"}, ""},
        {{"dmd_tar", "-xff", "../a.tar", "x", "y"}, 1, {"y"}, "Only one 'f' option allowed"},
        {{"dmd_tar", "-xfff", "../a.tar", "x"}, 1, {"x", "y"}, "Only one 'f' option allowed"},
        {{"dmd_tar", "-xf", "-", "x"}, 1, {"x"}, ""},
        {{"dmd_tar", "-x", "x", "z"}, 1, {"x"}, ""},
        {{"dmd_tar", "-xf", "../none"},
         -1,
         none,
         "Error opening '../none', error info:No such file or directory."},
        {{"dmd_tar", "-xf", ".."}, -1, none, "[M/read_tar_file] No end of archive found: Is a directory"},
        // Its writer takes its time, and nobody writes to the other.
        {{"dmd_tar", "-xf", "/dev/stdin", "x"}, 1, {"x"}, ""},
        {{"dmd_tar", "-xf", "../fifo"}, 0, none, "No end of archive found: end of file"},
        {{"dmd_tar", "-xf", "-none"}, -1, none, "Error opening '-none', error info:No such file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const LogCapture log;
        // The standard input brings the archive in pieces.
        const UniqueFd usual(dup(STDIN_FILENO));
        FILE* const pieces = popen("dd if=/data/a.tar bs=300 status=none | (sleep 0.05; cat)", "re");
        ASSERT_EQ(STDIN_FILENO, dup2(fileno(pieces), STDIN_FILENO));
        std::vector<std::string> words = c.words;
        const int before = open_descriptors("self");
        EXPECT_EQ(c.result, dmd_tar_main(static_cast<int>(words.size()), pointers_to(&words).data()));
        EXPECT_EQ(before, open_descriptors("self"));
        EXPECT_EQ(c.made, names_in("/data/w"));
        EXPECT_EQ(c.message.empty(), log.lines().empty());
        EXPECT_TRUE(c.message.empty() || log.has(c.message)) << c.message;
        for (const std::string& name : c.made) {
            EXPECT_EQ(read_file("/data/" + name), read_file(name));
            EXPECT_EQ(0, unlink(name.c_str()));
        }
        ASSERT_EQ(STDIN_FILENO, dup2(usual.get(), STDIN_FILENO));
        pclose(pieces);
    }
}

// One checksum, whatever the widths of the machine that the test runs on.
TEST(TarMain, ArchivesHaveTheSameBytesOnAPhoneAndOnADesk) {
    ASSERT_EQ(0, mkdir("/data/tree", 0750));
    write_file("/data/tree/log", std::string(1500, 'l'));
    for (const char* path : {"/data/early", "/data/late"}) {
        write_file(path, path);
    }
    ASSERT_EQ(0, link("/data/early", "/data/linked"));
    ASSERT_EQ(0, mkfifo("/data/fifo", 0600));
    for (const char* path : {"/data/tree/log", "/data/tree", "/data/fifo"}) {
        set_file_time(path, 1433153472);
    }
    set_file_time("/data/early", -1);
    set_file_time("/data/late", INT32_MAX);
    std::vector<std::string> words = {"dmd_tar",     "-cf",        "/data/a.tar",  "/data/tree",
                                      "/data/early", "/data/late", "/data/linked", "/data/fifo"};
    EXPECT_EQ(1, dmd_tar_main(static_cast<int>(words.size()), pointers_to(&words).data()));
    EXPECT_EQ("3334529053 6656\n", output_of("cksum < /data/a.tar"));
}
