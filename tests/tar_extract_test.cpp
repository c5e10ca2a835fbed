// What is made of an archive's members, and what is not.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "platform/owned.h"
#include "tar/tar_extract.h"
#include "tests/log_capture.h"
#include "tests/phone_test.h"
#include "tests/tar_blocks.h"

TEST(TarExtract, StaysInsideItsDirectory) {
    ASSERT_EQ(0, mkdir("/data/other", 0750));
    write_file("/data/other/kept", "kept");
    output_of("touch -d @1000 /data/other/kept /data/other");
    const std::string state = "find /data/other -printf '%p %s %n %C@\n' | sort";
    const std::string other = output_of(state);
    const std::string smuggled = header("smuggled");  // the data of what is not made is no member
    const std::string leads_out = ": Not extracted: leads out of the directory";
    LogCapture log;
    read_archive(file("/a") + END, 0);
    EXPECT_EQ(std::vector<std::string>{"[M/read_tar_header] Removing leading '/' from member names"},
              log.lines());
    enum Result { FAILS, COMPLETE };
    // The messages are without who says them.
    const auto check = [&](const char* what, const std::string& archive, Result result,
                           const std::string& files, const std::vector<std::string>& messages = {}) {
        SCOPED_TRACE(what);
        log.clear();
        enter_new("/data/out");
        EXPECT_EQ(result, read_archive(archive, 1));
        EXPECT_EQ(files, made());
        EXPECT_EQ(messages.size(), log.lines().size());
        for (const std::string& message : messages) {
            EXPECT_TRUE(log.has(message)) << message;
        }
        EXPECT_EQ(other, output_of(state)) << "size, names and last change";
        EXPECT_EQ((std::vector<std::string>{"a.tar", "hwcdump", "other", "out"}), names_in("/data"));
        output_of("rm -r /data/out");
    };
    check("names with ..",
          file("../other/kept", smuggled) + file("a/../../other/new", smuggled) + header("../other/", '5') +
              header("..", '0') + header("../new", '6', "0", "", "0010644") + file("..a", "1") +
              file("b..", "1") + END,
          FAILS, "..a=1 b..=1 ",
          {"../other/kept" + leads_out, "a/../../other/new" + leads_out, "../other" + leads_out,
           ".." + leads_out, "../new" + leads_out, DELAYED});
    check("absolute names", file("/data/other/kept", "new") + END, COMPLETE,
          "data/other/kept=3 data/other:d data:d ");
    check("a link on the way",
          header("l", '2', "0", "/data/other") + file("l/kept", smuggled) + file("l/new/f", smuggled) +
              file("l/d/") + header("l/new/", '5') + header("l/link", '2', "0", "kept") + END,
          FAILS, "l>/data/other ",
          {"l/kept" + leads_out, "l/d" + leads_out, "l/new/f" + leads_out, "l/new" + leads_out,
           "l/link" + leads_out, DELAYED});
    check("a link on the way at the end",
          file("l") + header("l/kept", '5', "0", "", "0040777") + header("l", '2', "0", "/data/other") + END,
          COMPLETE, "l>/data/other ");
    check("a link in the place",
          header("l", '2', "0", "/data/other/kept") + file("l", "new") +
              header("m", '2', "0", "/data/other") + header("m//", '5', "0", "", "0040777") +
              file("m/kept", "new") + END,
          COMPLETE, "l=3 m/kept=3 m:d ");
    check("hard links",
          header("a", '1', "0", "../other/kept") + header("l", '2', "0", "/data/other") +
              header("b", '1', "0", "l/kept") + header("c", '1', "0", "/data/other/kept") + END,
          FAILS, "l>/data/other ",
          {"a: Cannot create hard link to '../other/kept'", "b: Cannot create hard link to 'l/kept'",
           "c: Cannot create hard link to '/data/other/kept'", DELAYED});
    // Nothing of these is the target's.
    check("a link's attributes",
          header("l", '2', "0", "/data/other/kept") + header("h", '1', "0", "l") +
              header("m", '2', "0", "/data/other") + END,
          COMPLETE, "h>/data/other/kept l>/data/other/kept m>/data/other ");
}

TEST(TarExtract, TakesThePlaceOfWhatIsThere) {
    enter_new("/data/out");
    write_file("file", "old");
    ASSERT_EQ(0, link("file", "second"));
    ASSERT_EQ(0, mkfifo("fifo", 0600));
    ASSERT_EQ(0, mkdir("dir", 0700));
    write_file("dir/kept", "kept");
    write_file("to_dir", "");
    // Neither is the archive itself overwritten while it is read.
    ASSERT_EQ(0, link("/data/out/file", "/data/out/a"));
    const std::string archive =
        file("file", "new") + file("fifo", "new") + header("dir", '5', "0", "", "00040711") +
        header("to_dir/", '5', "0", "", "0040700") + header("to_dir", '5', "0", "", "0040750") +
        header("a", '1', "0", "file", "0100640") + END;
    EXPECT_EQ(1, read_archive(archive, 1));
    EXPECT_EQ("a=3 dir/kept=4 dir:d fifo=3 file=3 second=3 to_dir:d ", made());
    EXPECT_EQ("newnewoldkept",
              read_file("file") + read_file("a") + read_file("second") + read_file("dir/kept"));
    EXPECT_EQ(040711U, status_of("dir").st_mode);
    EXPECT_EQ(64, status_of("dir").st_mtime);
    EXPECT_EQ(0100640U, status_of("file").st_mode);
    EXPECT_EQ(0, read_archive(header("a", '1', "0", "dir") + END, 1));
    EXPECT_FALSE(exists("a"));
    EXPECT_LT(1000000000, status_of("file").st_atime) << "now";
    EXPECT_EQ(040750U, status_of("to_dir").st_mode);
}

TEST(TarExtract, MakesMissingDirectories) {
    const struct {
        mode_t umask, upper, parent;
    } cases[] = {{022, 0755, 0755}, {0277, 0700, 0500}, {0777, 0300, 0}};
    for (const auto& c : cases) {
        enter_new("/data/out");
        ASSERT_EQ(0, chmod("/data/out", 02755));  // does not pass on to those further up
        umask(c.umask);
        EXPECT_EQ(1, read_archive(file("p/q/f") + header("r/s/l", '2', "0", "f") +
                                      header("t/u/h", '1', "0", "p/q/f") +
                                      header("v/w/n", '6', "0", "", "0010644") +
                                      header("x/y", '5', "0", "", "0041751") + END,
                                  1));
        EXPECT_EQ(c.umask, umask(022));
        for (const char* upper : {"p", "r", "t", "v", "x"}) {
            EXPECT_EQ(S_IFDIR | c.upper, status_of(upper).st_mode) << upper;
        }
        for (const char* parent : {"p/q", "r/s", "t/u", "v/w"}) {
            EXPECT_EQ(S_IFDIR | c.parent, status_of(parent).st_mode) << parent;
        }
        EXPECT_EQ(S_IFDIR | 01751U, status_of("x/y").st_mode);
        EXPECT_EQ(S_IFREG | 0644U, status_of("p/q/f").st_mode);
        output_of("rm -r /data/out");
    }
    const LogCapture log;
    write_file("/data/file", "");
    EXPECT_EQ(0, make_directory("/data/file/d", 0700, MAKE_PARENTS)) << "no status of it";
    EXPECT_EQ(-1, make_directory("/data", 0700, 0));
    EXPECT_TRUE(log.has("[M/make_directory] Cannot create directory `/data'"));
    ASSERT_EQ(0, chdir("/.phone/sys"));
    EXPECT_EQ(0, read_archive(file("block/x/f") + header("block/y", '5') + END, 1));
    EXPECT_TRUE(log.has("[M/make_directory] Cannot create directory `block/x'"));
    EXPECT_TRUE(log.has("[M/make_directory] Cannot create directory `block/y'"));
}

TEST(TarExtract, KeepsItsPlaceOnAFullDisk) {
    enter_new("/data/small");
    ASSERT_EQ(0, mount("small", "/data/small", "tmpfs", 0, "size=16k"));
    ASSERT_EQ(0, chdir("/data/small"));
    std::string content;
    while (content.size() < 200000) {
        content += header("smuggled");
    }
    const LogCapture log;
    EXPECT_EQ(0, read_archive(file("big", content) + file("after") + END, 1));
    EXPECT_EQ(std::vector<std::string>{DELAYED}, log.lines());
    EXPECT_EQ((std::vector<std::string>{"after", "big"}), names_in("."));
}

TEST(TarExtract, DoesWhatItMayWithoutRoot) {
    ASSERT_EQ(0, mkdir("/data/other", 0777));
    write_file("/data/other/kept", "kept");
    output_of("cd /data/other && chmod 666 kept && chmod 777 . && touch -d @1000 kept .");
    enter_new("/data/out");
    // What is in the way here cannot be taken away.
    output_of(
        "umask 0; mkdir full; cd full; ln -s /data/other d; ln -s /data/other/kept f; mkfifo p; echo > r");
    ASSERT_EQ(0, link("/data/other/kept", "full/h"));
    const std::string before = listing_of("/data/other");
    ASSERT_EQ(0, chmod("full", 0755));
    ASSERT_EQ(0, chmod("/data/out", 0777));
    const UniqueFd reader(open("full/p", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const std::string data(512, 'x');
    // A directory may come behind its contents.
    write_file("/data/good.tar", header("d/e", '5', "0", "", "0042555") + file("d/e/f", "1") +
                                     header("d", '5', "0", "", "0040444") +
                                     header("s", '0', "0", "", "0104755") + END);
    const struct {
        std::string name;
        std::string archive;
        int result;
    } in_the_way[] = {
        // A directory does not fail where something has its name.
        {"link to a directory", header("full/d", '5') + END, 1},
        {"file for a directory", header("full/r/", '5') + END, 1},
        {"link to a file", header("full/f", '0', "1") + data + END, 0},
        {"second name of a file", header("full/h", '0', "1") + data + END, 0},
        {"FIFO", header("full/p", '0', "1") + data + END, 0},
    };
    for (const auto& c : in_the_way) {
        write_file("/data/" + c.name, c.archive);
    }
    const pid_t child = fork();
    if (child == 0) {
        // A namespace with one user has no other.
        if (setresgid(1000, 1000, 1000) != 0 || setresuid(1000, 1000, 1000) != 0) {
            _exit(77);
        }
        EXPECT_EQ(1, archive_command({"xf", "/data/good.tar"}));
        for (const auto& c : in_the_way) {
            EXPECT_EQ(c.result, archive_command({"xf", "/data/" + c.name})) << c.name;
        }
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "no second user here";
    }
    EXPECT_EQ(0, status) << "what failed stands above";
    EXPECT_EQ("d 1000 444 64\nd/e 1000 2555 64\nd/e/f 1000 644 64\ns 1000 4755 64\n",
              output_of("find d s -printf '%p %U %m %Ts\n'"));
    ASSERT_EQ(0, chdir("full"));
    EXPECT_EQ("d>/data/other f>/data/other/kept h=4 p:p r=1 ", made());
    char byte;
    EXPECT_EQ(0, read(reader.get(), &byte, 1));
    EXPECT_EQ(before, listing_of("/data/other"));
}
