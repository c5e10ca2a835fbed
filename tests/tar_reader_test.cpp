// Archives of this and of other tools, and archives that no tool writes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <string>
#include <vector>

#include "platform/owned.h"
#include "tar/tar_reader.h"
#include "tests/log_capture.h"
#include "tests/phone_test.h"
#include "tests/tar_blocks.h"

TEST(TarReader, AgreesWithOtherTools) {
    enter_new("/data/in");
    ASSERT_EQ(0, mkdir("t", 0750));
    ASSERT_EQ(0, mkdir("t/sub", 0700));
    const std::string deep(60, 'd');
    struct File {
        std::string path;
        int size;
        mode_t mode = 0600;
    };
    const File files[] = {{"t/empty", 0},          {"t/program", 1, 04755}, {"t/sub/f511", 511},
                          {"t/sub/f512", 512},     {"t/f513", 513},         {"t/f10239", 10239},
                          {"t/sub/f10240", 10240}, {"t/f10241", 10241},     {"t/sub/f20480", 20480},
                          {"t/f20481", 20481},     {"t/large", 300000}};
    for (const File& file : files) {
        std::string content;
        for (int number = 0; content.size() < static_cast<size_t>(file.size); ++number) {
            content += std::to_string(number);
        }
        content.resize(file.size);
        write_file(file.path, content);
        // Where the owner cannot be set, it is the same for all.
        static_cast<void>(chown(file.path.c_str(), 1000, 100007) != 0);
        ASSERT_EQ(0, chmod(file.path.c_str(), file.mode));
        set_file_time(file.path, 1000000000 + file.size);
    }
    ASSERT_EQ(0, link("t/sub/f512", "t/again"));
    set_file_time("t/sub", 86400);
    ASSERT_EQ(0, chmod("t/sub", 0555));
    output_of("cp -a t u");  // what this tool's own archives do not hold
    ASSERT_EQ(0, symlink("sub/f512", "u/link"));
    static_cast<void>(lchown("u/link", 1000, 100007) != 0);
    output_of("mkdir -p u/" + deep + "/e && echo long > u/" + deep + "/e/" + std::string(80, 'f'));
    output_of("touch -d @99 u u/" + deep + " u/" + deep + "/e; touch -d @77 t");

    ASSERT_EQ(1, archive_command({"cf", "/data/own.tar", "/data/in/t"}));
    output_of("tar --format=ustar -cf /data/gnu.tar u && bsdtar --format=ustar -cf /data/bsd.tar u");
    const std::string readers[] = {"tar --delay-directory-restore --numeric-owner -xpf",
                                   "bsdtar --numeric-owner -xpf", ""};
    for (const std::string archive : {"own", "gnu", "bsd"}) {
        const std::string from = archive == "own" ? "/data/in/t" : "/data/in/u";
        for (const std::string& reader : readers) {
            enter_new("/data/out");
            if (reader.empty()) {
                EXPECT_EQ(1, archive_command({"xf", "/data/" + archive + ".tar"}));
            } else {
                output_of(reader + " /data/" + archive + ".tar 2>&1");
            }
            EXPECT_EQ(listing_of(from), listing_of(archive == "own" ? "data/in/t" : "u"))
                << archive << " " << reader;
            output_of("cd / && rm -r /data/out");
        }
    }
}

TEST(TarReader, MakesTheNodesOfItsOwnArchives) {
    enter_new("/data/in");
    ASSERT_EQ(0, mkfifo("fifo", 0620));
    // Where the kernel makes no devices, the FIFO remains.
    const bool devices = mknod("c", S_IFCHR | 0666, makedev(0x81, 0x23)) == 0 &&
                         mknod("b", S_IFBLK | 0640, makedev(7, 1)) == 0;
    output_of("touch -d @1000 *");
    ASSERT_EQ(1, archive_command({"cf", "/data/a.tar", "."}));
    enter_new("/data/out");
    EXPECT_EQ(1, archive_command({"xf", "/data/a.tar"}));
    EXPECT_EQ(listing_of("/data/in"), listing_of("/data/out"));
    EXPECT_EQ(devices, exists("c") && status_of("c").st_rdev == makedev(0x81, 0x23) &&
                           status_of("b").st_rdev == makedev(7, 1));
    // The mode says what to make, not the type; device numbers have more bits than a byte each.
    const std::string nodes = header("3", '3', "0", "", "0010640") + header("6", '6', "0", "", "0140600") +
                              header("big", '6', "0", "", "0020600", "0005274", "0221505");
    EXPECT_EQ(devices ? 1 : 0, read_archive(nodes + END, 1));
    EXPECT_TRUE(S_ISFIFO(status_of("3").st_mode));
    EXPECT_TRUE(S_ISSOCK(status_of("6").st_mode));
    EXPECT_EQ(devices, exists("big") && status_of("big").st_rdev == makedev(0xabc, 0x12345));
}

TEST(TarReader, GoesOnBehindWhatIsDamaged) {
    const std::string smuggled = header("smuggled");
    const std::string name100 = std::string(49, 'n') + "/" + std::string(50, 'm');
    const std::string link_fault = "[M/tar_extract_hard_link] ";
    LogCapture log;
    read_archive(file("//a") + END, 0);            // says once that it removes the "/"
    enum Outcome { COMPLETE, ONLY_READS, FAILS };  // ONLY_READS: it is complete, but not all could be made
    const auto check = [&log](const char* what, const std::string& archive, Outcome outcome,
                              const std::string& files, const std::vector<std::string>& messages = {}) {
        SCOPED_TRACE(what);
        enter_new("/data/out");
        log.clear();
        const int before = open_descriptors("self");
        EXPECT_EQ(outcome == COMPLETE, read_archive(archive, 1));
        EXPECT_EQ(files, made());
        EXPECT_EQ(messages, log.lines());
        EXPECT_EQ("", output_of("find . -type f -perm /6000"));
        output_of("rm -rf /data/out/*");
        write_file("a", "kept");
        EXPECT_EQ(outcome != FAILS, read_archive(archive, 0));
        EXPECT_EQ("a=4 ", made()) << "reading through changes nothing";
        EXPECT_EQ(before, open_descriptors("self"));
        output_of("rm -r /data/out");
    };
    check("nothing", "", FAILS, "", {NO_END});
    check("no end", file("a"), FAILS, "a=0 ", {NO_END});
    check("one end block", file("a") + END.substr(512), COMPLETE, "a=0 ");
    check("bad checksum", file("a", "1") + damaged(header("b")) + file("c") + END, FAILS, "a=1 c=0 ",
          {BAD, DELAYED});
    check("header without name, damaged", file("a") + damaged(header("")) + file("c") + END, COMPLETE,
          "a=0 ");
    check("the same behind a failure", damaged(header("b")) + damaged(header("//")) + file("c") + END, FAILS,
          "", {BAD, DELAYED});
    check("no name", header("") + header("//") + file("c") + END, COMPLETE, "c=0 ");
    check("cut header", file("a") + std::string(511, 'h'), FAILS, "a=0 ",
          {"[M/read_tar_file] Error reading tar file"});
    check("cut data", file("a") + file("b", std::string(1100, 'b')).substr(0, 1300), FAILS, "a=0 b=788 ",
          {EARLY, NO_END, DELAYED});
    check("a cut set-id program", header("s", '0', "1001", "", "0104755") + END.substr(512), FAILS, "s=512 ",
          {EARLY, NO_END, DELAYED});
    check("cut padding", file("b", "data").substr(0, 600), FAILS, "b=4 ", {NO_END});
    check("unknown type", file("a") + header("b", '7') + file("c") + END, FAILS, "a=0 ",
          {"[M/read_tar_file] Unknown file type '7' in tar file"});
    check("long names",
          header("L", 'K', "1") + smuggled + header("L", 'L', "1000") + smuggled + file("long", smuggled) +
              file("b") + END,
          COMPLETE, "b=0 ", {"[M/read_tar_file] long: Long name or link name, skipping"});
    check(
        "damage behind a long name",
        header("L", 'L', "1") + smuggled + damaged(header("b")) + header("") + file("long") + file("c") + END,
        FAILS, "c=0 ", {BAD, "[M/read_tar_file] long: Long name or link name, skipping", DELAYED});
    check("another format's prefix",
          sealed(header("a").replace(257, 8, std::string("ustar  ", 8)).replace(345, 5, "times")) + END,
          COMPLETE, "a=0 ");
    check("cut long name", header("L", 'L', "1000"), FAILS, "", {EARLY, NO_END, DELAYED});
    check("no size", header("a", '0', "x") + header("b", '0', "") + END, COMPLETE, "a=0 b=0 ");
    check("blanks, and no terminator",
          header("a", '0', " 1 x") + smuggled + header("b", '0', "000000000001") + smuggled + END, COMPLETE,
          "a=1 b=1 ");
    check("a binary size",
          header("a", '0', std::string("\200\0\0\0\0\0\0\0\0\0\0\1", 12)) + smuggled + file("b") + END,
          COMPLETE, "a=1 b=0 ");
    check("a negative binary size", header("a", '0', std::string(12, '\377')) + file("b") + END, FAILS,
          "b=0 ", {BAD, DELAYED});
    check("a huge binary size", header("a", '0', "\277" + std::string(11, '\377')) + END, FAILS, "a=1024 ",
          {EARLY, NO_END, DELAYED});
    check("names with dots", header("./", '5') + file("d/./e", "1") + header("f/./", '5') + END, ONLY_READS,
          "d:d f:d ",
          {"[M/make_directory] Cannot create directory `d/.'",
           "[M/make_directory] Cannot create directory `f/.'", DELAYED});
    check("the least binary size", header("a", '0', "\300" + std::string(11, '\0')) + file("b") + END, FAILS,
          "b=0 ", {BAD, DELAYED});
    check("an old directory that cannot be made", header("l", '2', "0", "x") + header("l/d/") + END,
          ONLY_READS, "l>x ", {"[M/read_tar_file] l/d: Not extracted: leads out of the directory", DELAYED});
    check("negative size", header("a", '0', "-1") + file("b") + END, FAILS, "b=0 ", {BAD, DELAYED});
    check("huge size", header("a", '0', "777777777777") + file("b") + END, FAILS, "a=1536 ",
          {EARLY, NO_END, DELAYED});
    check("more than 31 bits", header("a", '0', "020000000001") + smuggled + smuggled + END, FAILS, "a=2048 ",
          {EARLY, NO_END, DELAYED});
    check("more than 32 bits", header("a", '0', "040000000001") + smuggled + smuggled + END, FAILS, "a=2048 ",
          {EARLY, NO_END, DELAYED});
    check("full names",
          header(name100, '0', "1") + smuggled + header("l", '2', "0", std::string(100, 'l')) + END, COMPLETE,
          "l>" + std::string(100, 'l') + " " + name100 + "=1 " + name100.substr(0, 49) + ":d ");
    check("old regular files and directories",
          header("d/", '\0', "1") + header("e") + header("d/f", '\0', "1") + smuggled + END, COMPLETE,
          "d/f=1 d:d e=0 ");
    check("a mode without type", header("p", '6', "0", "", "0000644") + END, COMPLETE, "",
          {"[M/tar_extract_special] p: No node has mode 644, nothing created"});
    check("data in the way",
          file("d/f", "1") + file("d", smuggled) + header("d", '6', "0", "", "0010644") +
              header("d", '4', "0", "", "0060644") + header("d", '2', "0", "f") +
              header("s/", '2', "0", "f") + END,
          ONLY_READS, "d/f=1 d:d ",
          {"[M/tar_extract_special] d: Cannot mkfifo", "[M/tar_extract_special] d: Cannot mknod",
           "[M/tar_extract_symlink] d: Cannot create symlink to 'f'",
           "[M/tar_extract_symlink] s/: Cannot create symlink to 'f'", DELAYED});
    check("a file on the way",
          file("f", "1") + header("f/p", '6', "0", "", "0010644") + header("f/n", '3', "0", "", "0020644") +
              header("f/l", '2', "0", "x") + header("f/h", '1', "0", "f") + file("f/g", smuggled) + END,
          ONLY_READS, "f=1 ",
          {"[M/tar_extract_special] f/p: Cannot mkfifo", "[M/tar_extract_special] f/n: Cannot mknod",
           "[M/tar_extract_symlink] f/l: Cannot create symlink to 'x'",
           link_fault + "f/h: Cannot create hard link to 'f'", DELAYED});
    check("directories below a file", file("f", "1") + header("f/d", '5') + header("f/d/e/") + END, COMPLETE,
          "f=1 ");
    check("hard links",
          file("f", "1") + header("f", '1', "0", "f") + header("g/h", '1', "0", "///f") +
              header("g", '1', "0", "g") + header("j", '1') + header("f", '1', "0", "none") + END,
          ONLY_READS, "g/h=1 g:d ",
          {link_fault + "g: Cannot create hard link to 'g'", link_fault + "j: Cannot create hard link to ''",
           link_fault + "f: Cannot create hard link to 'none'", DELAYED});
}

TEST(TarReader, SelectsByPatterns) {
    const std::string archive = header("data/logs/", '5') + file("data/logs/k", std::string(600, 'k')) +
                                header("l", '2', "7", "k") + file("data/logs2", "2") + file(".m1", "1") +
                                header("m2", '\0', "2") + header("data/logs/smuggled") + file("m3", "3") +
                                END;
    const struct {
        std::vector<std::string> patterns;
        std::string made;
    } cases[] = {
        {{"data/logs"}, "data/logs/k=600 data/logs:d data:d "},
        {{"none", "?m[1-9]", "d*2", "m3"}, ".m1=1 data/logs2=1 data:d m3=1 "},
        {{"data"}, "data/logs/k=600 data/logs2=1 data/logs:d data:d "},
        {{"logs"}, ""},
    };
    for (const auto& c : cases) {
        enter_new("/data/out");
        EXPECT_EQ(1, read_archive(archive, 1, c.patterns));
        EXPECT_EQ(c.made, made());
        output_of("rm -r /data/out");
    }
    const LogCapture log;
    EXPECT_EQ(0, read_archive(archive.substr(0, 1200), 1, {"none"}));
    EXPECT_EQ((std::vector<std::string>{EARLY, NO_END}), log.lines());
}
