// Archives of this and of other tools, and archives that no tool writes.
#include "tar/tar_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "platform/owned.h"
#include "tar/tar_main.h"
#include "tests/log_capture.h"
#include "tests/phone_test.h"

namespace {

int archive_command(std::vector<std::string> words) {
    words.insert(words.begin(), "dmd_tar");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    return dmd_tar_main(static_cast<int>(words.size()), argv.data());
}

void enter_new(const std::string& directory) {
    ASSERT_EQ(0, mkdir(directory.c_str(), 0755));
    ASSERT_EQ(0, chdir(directory.c_str()));
}

// A header block; the fields that are not given are zero.
std::string header(const std::string& name, char type = '0', const std::string& size = "0",
                   const std::string& link = "", const std::string& mode = "0100644",
                   const std::string& major = "", const std::string& minor = "") {
    std::string block(512, '\0');
    const auto put = [&block](size_t offset, const std::string& text) {
        block.replace(offset, text.size(), text);
    };
    put(0, name);
    put(100, mode);
    put(108, "0000000");
    put(116, "0000000");
    put(124, size);
    put(136, "00000000100");
    put(148, "        ");
    put(156, std::string(1, type));
    put(157, link);
    put(257, std::string("ustar\00000", 8));
    put(329, major);
    put(337, minor);
    unsigned int sum = 0;
    for (const char byte : block) {
        sum += static_cast<unsigned char>(byte);
    }
    char checksum[8];
    snprintf(checksum, sizeof checksum, "%06o", sum & 0x7fff);
    put(148, checksum);
    return block;
}

// The same with a wrong checksum.
std::string damaged(std::string block) {
    block[511] = 'x';
    return block;
}

// A file with its data.
std::string file(const std::string& name, std::string content = "") {
    char size[12];
    snprintf(size, sizeof size, "%011zo", content.size());
    content.resize((content.size() + 511) / 512 * 512, '\0');
    return header(name, '0', size) + content;
}

const std::string END(1024, '\0');
const std::string DELAYED = "[M/read_tar_file] Error exit delayed from previous errors";
const std::string BAD = "[M/read_tar_file] Bad tar header, skipping";
const std::string NO_END = "[M/read_tar_file] No end of archive found: end of file";
const std::string EARLY = "[M/tar_extract_regular_file] Unexpected EOF in archive";

int read_archive(const std::string& bytes, int extract, std::vector<std::string> patterns = {}) {
    write_file("/data/a.tar", bytes);
    const UniqueFd archive(open("/data/a.tar", O_RDONLY | O_CLOEXEC));
    std::vector<char*> list;
    for (std::string& pattern : patterns) {
        list.push_back(pattern.data());
    }
    list.push_back(nullptr);
    return read_tar_file(archive.get(), extract, patterns.empty() ? nullptr : list.data());
}

// Names of all below the current directory, with the types and a link's target or a file's size.
std::string made() {
    return output_of(R"(find . -mindepth 1 -type l -printf '%P>%l ' -o -mindepth 1 -type f -printf '%P=%s ')"
                     R"( -o -mindepth 1 -printf '%P:%y ' | tr ' ' '\n' | sort | tr '\n' ' ')");
}

}  // namespace

TEST(TarReader, AgreesWithOtherTools) {
    enter_new("/data/in");
    ASSERT_EQ(0, mkdir("t", 0750));
    ASSERT_EQ(0, mkdir("t/sub", 0700));
    const std::string deep(60, 'd');
    for (const int size : {0, 1, 511, 512, 513, 10239, 10240, 10241, 20480, 20481, 300000}) {
        const std::string path = (size % 2 ? "t/f" : "t/sub/f") + std::to_string(size);
        std::string content(size, 'c');
        for (int i = 0; i < size; i += 7) {
            content[i] = static_cast<char>(i / 7);
        }
        write_file(path, content);
        // Where the owner cannot be set, it is the same for all.
        static_cast<void>(chown(path.c_str(), 1000, 1007) != 0);
        ASSERT_EQ(0, chmod(path.c_str(), size % 2 ? 04755 : 0600));
        set_file_time(path, 1000000000 + size);
    }
    ASSERT_EQ(0, link("t/sub/f512", "t/again"));
    set_file_time("t/sub", 86400);
    ASSERT_EQ(0, chmod("t/sub", 0555));
    output_of("cp -a t u");  // what this tool's own archives do not hold
    ASSERT_EQ(0, symlink("sub/f512", "u/link"));
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
    const struct {
        const char* what;
        std::string archive;
        int result;       // of extracting
        int read_result;  // of reading through
        std::string made;
        std::vector<std::string> log;
    } cases[] = {
        {"nothing", "", 0, 0, "", {NO_END}},
        {"no end", file("a"), 0, 0, "a=0 ", {NO_END}},
        {"one end block", file("a") + END.substr(512), 1, 1, "a=0 ", {}},
        {"bad checksum",
         file("a", "1") + damaged(header("b")) + file("c") + END,
         0,
         0,
         "a=1 c=0 ",
         {BAD, DELAYED}},
        {"header without name, damaged", damaged(header("")) + file("c") + END, 0, 0, "c=0 ", {BAD, DELAYED}},
        {"no name", header("") + header("//") + file("c") + END, 1, 1, "c=0 ", {}},
        {"cut header",
         file("a") + std::string(511, 'h'),
         0,
         0,
         "a=0 ",
         {"[M/read_tar_file] Error reading tar file"}},
        {"cut data",
         file("a") + file("b", std::string(1100, 'b')).substr(0, 1300),
         0,
         0,
         "a=0 b=788 ",
         {EARLY, NO_END, DELAYED}},
        {"a cut set-id program",
         header("s", '0', "1001", "", "0104755") + END.substr(512),
         0,
         0,
         "s=512 ",
         {EARLY, NO_END, DELAYED}},
        {"cut padding", file("b", "data").substr(0, 600), 0, 0, "b=4 ", {NO_END}},
        {"unknown type",
         file("a") + header("b", '7') + file("c") + END,
         0,
         0,
         "a=0 ",
         {"[M/read_tar_file] Unknown file type '7' in tar file"}},
        {"long names",
         header("L", 'K', "1") + smuggled + header("L", 'L', "1000") + smuggled + file("long", smuggled) +
             file("b") + END,
         1,
         1,
         "b=0 ",
         {"[M/read_tar_file] long: Long name or link name, skipping"}},
        {"cut long name", header("L", 'L', "1000"), 0, 0, "", {EARLY, NO_END, DELAYED}},
        {"no size", header("a", '0', "x") + header("b", '0', "") + END, 1, 1, "a=0 b=0 ", {}},
        {"blanks, and no terminator",
         header("a", '0', " 1 x") + smuggled + header("b", '0', "000000000001") + smuggled + END,
         1,
         1,
         "a=1 b=1 ",
         {}},
        {"a binary size",
         header("a", '0', std::string("\200\0\0\0\0\0\0\0\0\0\0\1", 12)) + smuggled + file("b") + END,
         1,
         1,
         "a=1 b=0 ",
         {}},
        {"a negative binary size",
         header("a", '0', std::string(12, '\377')) + file("b") + END,
         0,
         0,
         "b=0 ",
         {BAD, DELAYED}},
        {"a huge binary size",
         header("a", '0', "\277" + std::string(11, '\377')) + END,
         0,
         0,
         "a=1024 ",
         {EARLY, NO_END, DELAYED}},
        {"names with dots",
         header("./", '5') + file("d/./e", "1") + header("f/./", '5') + END,
         1,
         1,
         "d/e=1 d:d f:d ",
         {}},
        {"negative size", header("a", '0', "-1") + file("b") + END, 0, 0, "b=0 ", {BAD, DELAYED}},
        {"huge size",
         header("a", '0', "777777777777") + file("b") + END,
         0,
         0,
         "a=1536 ",
         {EARLY, NO_END, DELAYED}},
        {"more than 32 bits",
         header("a", '0', "040000000001") + smuggled + smuggled + END,
         0,
         0,
         "a=2048 ",
         {EARLY, NO_END, DELAYED}},
        {"full names",
         header(name100, '0', "1") + smuggled + header("l", '2', "0", std::string(100, 'l')) + END,
         1,
         1,
         "l>" + std::string(100, 'l') + " " + name100 + "=1 " + name100.substr(0, 49) + ":d ",
         {}},
        {"old regular files and directories",
         header("d/", '\0', "1") + smuggled + header("d/f", '\0', "1") + smuggled + END,
         1,
         1,
         "d/f=1 d:d ",
         {}},
        {"a mode without type",
         header("p", '6', "0", "", "0000644") + END,
         1,
         1,
         "",
         {"[M/tar_extract_special] p: No node has mode 644, nothing created"}},
        {"data in the way",
         file("d/f", "1") + file("d", smuggled) + header("d", '6', "0", "", "0010644") +
             header("d", '4', "0", "", "0060644") + header("d", '2', "0", "f") + header("d/f/g", '5') + END,
         0,
         1,
         "d/f=1 d:d ",
         {"[M/tar_extract_special] d: Cannot mkfifo", "[M/tar_extract_special] d: Cannot mknod",
          "[M/tar_extract_symlink] d: Cannot create symlink to 'f'",
          "[M/read_tar_file] d/f/g: Not extracted: Not a directory", DELAYED}},
        {"hard links",
         file("f", "1") + header("f", '1', "0", "f") + header("f", '1', "0", "none") +
             header("g/h", '1', "0", "///f") + header("i", '1', "0", "none") + header("j", '1') + END,
         0,
         1,
         "f=1 g/h=1 g:d ",
         {link_fault + "f: Cannot create hard link to 'none'",
          link_fault + "i: Cannot create hard link to 'none'",
          link_fault + "j: Cannot create hard link to ''", DELAYED}},
    };
    LogCapture log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        enter_new("/data/out");
        read_archive(file("//a") + END, 0);  // says once that it removes the "/"
        log.clear();
        const int before = open_descriptors("self");
        EXPECT_EQ(c.result, read_archive(c.archive, 1));
        EXPECT_EQ(c.made, made());
        EXPECT_EQ(c.log, log.lines());
        EXPECT_EQ("", output_of("find . -type f -perm /6000"));
        output_of("rm -rf /data/out/*");
        EXPECT_EQ(c.read_result, read_archive(c.archive, 0));
        EXPECT_EQ("", made());
        EXPECT_EQ(before, open_descriptors("self"));
        ASSERT_EQ(0, rmdir("/data/out"));
    }
}

TEST(TarReader, StaysInsideItsDirectory) {
    ASSERT_EQ(0, mkdir("/data/other", 0750));
    write_file("/data/other/kept", "kept");
    output_of("touch -d @1000 /data/other/kept /data/other");
    const std::string other = listing_of("/data/other");
    const std::string smuggled = header("smuggled");  // the data of what is not made is no member
    const std::string leads_out = ": Not extracted: leads out of the directory";
    const struct {
        const char* what;
        std::string archive;
        int result;
        std::string made;
        std::vector<std::string> log;  // without who says it
    } cases[] = {
        {"names with ..",
         file("../other/kept", smuggled) + file("a/../../other/new", smuggled) + header("../other/", '5') +
             header("..", '0') + header("../new", '6', "0", "", "0010644") + file("..a", "1") +
             file("b..", "1") + END,
         0,
         "..a=1 b..=1 ",
         {"../other/kept" + leads_out, "a/../../other/new" + leads_out, "../other" + leads_out,
          ".." + leads_out, "../new" + leads_out, DELAYED}},
        {"absolute names",
         file("/data/other/kept", "new") + END,
         1,
         "data/other/kept=3 data/other:d data:d ",
         {}},
        {"a link on the way",
         header("l", '2', "0", "/data/other") + file("l/kept", smuggled) + file("l/new/f", smuggled) +
             header("l/new/", '5') + header("l/link", '2', "0", "kept") + END,
         0,
         "l>/data/other ",
         {"l/kept: Not extracted: Not a directory", "l/new/f: Not extracted: Not a directory",
          "l/new: Not extracted: Not a directory", "l/link: Not extracted: Not a directory", DELAYED}},
        {"a link in the place",
         header("l", '2', "0", "/data/other/kept") + file("l", "new") + header("m", '2', "0", "/data/other") +
             header("m/", '5', "0", "", "0040777") + file("m/kept", "new") + END,
         1,
         "l=3 m/kept=3 m:d ",
         {}},
        {"hard links",
         header("a", '1', "0", "../other/kept") + header("l", '2', "0", "/data/other") +
             header("b", '1', "0", "l/kept") + header("c", '1', "0", "/data/other/kept") + END,
         0,
         "l>/data/other ",
         {"a: Cannot create hard link to '../other/kept'", "b: Cannot create hard link to 'l/kept'",
          "c: Cannot create hard link to '/data/other/kept'", DELAYED}},
        // Nothing of these is the target's.
        {"a link's attributes",
         header("l", '2', "0", "/data/other/kept") + header("h", '1', "0", "l") +
             header("m", '2', "0", "/data/other") + END,
         1,
         "h>/data/other/kept l>/data/other/kept m>/data/other ",
         {}},
    };
    LogCapture log;
    read_archive(file("/a") + END, 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        log.clear();
        enter_new("/data/out");
        EXPECT_EQ(c.result, read_archive(c.archive, 1));
        EXPECT_EQ(c.made, made());
        EXPECT_EQ(c.log.size(), log.lines().size());
        for (const std::string& line : c.log) {
            EXPECT_TRUE(log.has(line)) << line;
        }
        EXPECT_EQ(other, listing_of("/data/other"));
        EXPECT_EQ((std::vector<std::string>{"a.tar", "hwcdump", "other", "out"}), names_in("/data"));
        output_of("rm -r /data/out");
    }
}

TEST(TarReader, TakesThePlaceOfWhatIsThere) {
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
        file("file", "new") + file("fifo", "new") + header("dir", '5', "0", "", "0040711") +
        header("to_dir/", '5', "0", "", "0040750") + header("a", '1', "0", "file") + END;
    EXPECT_EQ(1, read_archive(archive, 1));
    EXPECT_EQ("a=3 dir/kept=4 dir:d fifo=3 file=3 second=3 to_dir:d ", made());
    EXPECT_EQ("newnewoldkept",
              read_file("file") + read_file("a") + read_file("second") + read_file("dir/kept"));
    EXPECT_EQ(040711U, status_of("dir").st_mode);
    EXPECT_EQ(64, status_of("dir").st_mtime);
    EXPECT_EQ(040750U, status_of("to_dir").st_mode);
}

// What is missing above a member, by what the umask leaves of it.
TEST(TarReader, MakesMissingDirectories) {
    const struct {
        mode_t umask, upper, parent;
    } cases[] = {{022, 0755, 0755}, {0, 0777, 0777}, {0277, 0700, 0500}, {0777, 0300, 0}};
    for (const auto& c : cases) {
        enter_new("/data/out");
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
    ASSERT_EQ(0, chdir("/.phone/sys"));
    EXPECT_EQ(0, read_archive(file("block/x/f") + header("block/y", '5') + END, 1));
    EXPECT_TRUE(log.has("[M/make_directory] Cannot create directory `block/x'"));
    EXPECT_TRUE(log.has("[M/make_directory] Cannot create directory `block/y'"));
}

TEST(TarReader, SelectsByPatterns) {
    const std::string archive = header("data/logs/", '5') + file("data/logs/k", std::string(600, 'k')) +
                                header("l", '2', "9", "k") + file("data/logs2", "2") + file("m1", "1") +
                                file("m2", "2") + END;
    const struct {
        std::vector<std::string> patterns;
        std::string made;
    } cases[] = {
        {{"data/logs"}, "data/logs/k=600 data/logs:d data:d "},
        {{"none", "m[1-9]", "d*2"}, "data/logs2=1 data:d m1=1 m2=1 "},
        {{"data"}, "data/logs/k=600 data/logs2=1 data/logs:d data:d "},
        {{"logs"}, ""},
    };
    for (const auto& c : cases) {
        enter_new("/data/out");
        EXPECT_EQ(1, read_archive(archive, 1, c.patterns));
        EXPECT_EQ(c.made, made());
        EXPECT_EQ(0, read_archive(archive.substr(0, 1200), 1, {"none"})) << "data of what is not selected";
        output_of("rm -r /data/out");
    }
}

TEST(TarReader, KeepsItsPlaceOnAFullDisk) {
    enter_new("/data/small");
    ASSERT_EQ(0, mount("small", "/data/small", "tmpfs", 0, "size=16k"));
    ASSERT_EQ(0, chdir("/data/small"));
    std::string content;
    while (content.size() < 40000) {
        content += header("smuggled");
    }
    const LogCapture log;
    EXPECT_EQ(0, read_archive(file("big", content) + file("after") + END, 1));
    EXPECT_EQ(std::vector<std::string>{DELAYED}, log.lines());
    EXPECT_EQ((std::vector<std::string>{"after", "big"}), names_in("."));
}

// As somebody who may not do everything.
TEST(TarReader, DoesWhatItMayWithoutRoot) {
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
    write_file("/data/good.tar", header("d", '5', "0", "", "0040444") +
                                     header("d/e", '5', "0", "", "0042555") + file("d/e/f", "1") +
                                     header("s", '0', "0", "", "0104755") + END);
    write_file("/data/full.tar", header("full/d", '5') + header("full/r/", '5') + header("full/f", '0', "1") +
                                     data + header("full/h", '0', "1") + data + header("full/p", '0', "1") +
                                     data + END);
    const pid_t child = fork();
    if (child == 0) {
        // A namespace with one user has no other.
        if (setresgid(1000, 1000, 1000) != 0 || setresuid(1000, 1000, 1000) != 0) {
            _exit(77);
        }
        _exit(archive_command({"xf", "/data/good.tar"}) + 2 * archive_command({"xf", "/data/full.tar"}));
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "no second user here";
    }
    EXPECT_EQ(1, WEXITSTATUS(status)) << "1 and 0";
    EXPECT_EQ("d 1000 444 64\nd/e 1000 2555 64\nd/e/f 1000 644 64\ns 1000 755 64\n",
              output_of("find d s -printf '%p %U %m %Ts\n'"));
    ASSERT_EQ(0, chdir("full"));
    EXPECT_EQ("d>/data/other f>/data/other/kept h=4 p:p r=1 ", made());
    char byte;
    EXPECT_EQ(0, read(reader.get(), &byte, 1));
    EXPECT_EQ(before, listing_of("/data/other"));
}

// More than wait for their attributes at a time.
TEST(TarReader, GivesManyDirectoriesTheirAttributes) {
    std::string archive = header("t", '5', "0", "", "0040700");
    for (int i = 0; i < 1100; ++i) {
        const std::string name = "t/" + std::to_string(i);
        archive += header(name + "/", '5', "0", "", "0040555") + file(name + "/f");
    }
    archive += header("t", '5', "0", "", "0040750");
    enter_new("/data/out");
    EXPECT_EQ(1, read_archive(archive + END, 1));
    EXPECT_EQ("1100\n", output_of("find t -perm 555 ! -newermt @65 | wc -l"));
    EXPECT_EQ(040750U, status_of("t").st_mode);
    EXPECT_EQ(64, status_of("t").st_mtime);
}
