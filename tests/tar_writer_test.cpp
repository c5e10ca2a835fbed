// Archives as the system's tar reads them, and what becomes of members that cannot be archived.
#include "tar/tar_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/owned.h"
#include "tests/log_capture.h"
#include "tests/phone_test.h"

namespace {

int archive_paths(const std::string& archive, std::vector<std::string> paths) {
    return write_tar_file(archive.c_str(), pointers_to(&paths).data());
}

// The members' names, as the system's tar reads them; the test fails when it finds fault with the archive.
std::string members_of(const std::string& archive) {
    return output_of("tar -tPf " + archive + " 2>&1");
}

}  // namespace

TEST(TarWriter, WritesNoMoreThanItMust) {
    ASSERT_EQ(0, mkdir("/data/t", 0750));
    write_file("/data/t/empty", "");
    write_file("/data/t/full", std::string(512, 'f'));
    write_file("/data/t/more", std::string(513, 'm'));
    ASSERT_EQ(0, link("/data/t/more", "/data/t/again"));
    const LogCapture log;
    const int before = open_descriptors("self");
    EXPECT_EQ(1, archive_paths("/data/a.tar", {"/data/t"}));
    EXPECT_EQ(before, open_descriptors("self"));
    EXPECT_EQ(5 * 512 + 512 + 1024 + 1024, status_of("/data/a.tar").st_size);
    EXPECT_EQ("data/t/\n", members_of("/data/a.tar").substr(0, 8)) << "a directory comes before its contents";
    EXPECT_EQ(1, archive_paths("/data/a.tar", {"/data/t/empty"}));
    EXPECT_EQ(512 + 1024, status_of("/data/a.tar").st_size);
    EXPECT_EQ(std::vector<std::string>{"[M/write_file_to_tarball] Removing leading '/' from member names"},
              log.lines())
        << "once for all archives";
}

TEST(TarWriter, PassesOverPathsThatDoNotFit) {
    ASSERT_EQ(0, mkdir("/data/n", 0755));
    for (const size_t length : {98, 99, 100, 101}) {
        const std::string file = "/data/n/" + std::string(length - 8, 'f');
        const std::string directory = "/data/n/" + std::string(length - 8, 'd');
        write_file(file, "content");
        ASSERT_EQ(0, mkdir(directory.c_str(), 0755));
        write_file(directory + "/f", "content");
        LogCapture log;
        EXPECT_EQ(1, archive_paths("/data/a.tar", {file, directory}));
        if (length <= 99) {
            EXPECT_EQ(file.substr(1) + "\n" + directory.substr(1) + "/\n", members_of("/data/a.tar"));
        } else {
            const std::string too_long = ": path too long for a member; skipping";
            EXPECT_EQ("", members_of("/data/a.tar"));
            EXPECT_EQ((std::vector<std::string>{"[M/write_file_to_tarball] " + file + too_long,
                                                "[M/write_file_to_tarball] " + directory + too_long}),
                      log.lines())
                << "nothing is said of what is in the directory";
        }
    }
}

TEST(TarWriter, GoesOnBehindWhatItCannotArchive) {
    LogCapture log;
    ASSERT_EQ(0, mkdir("/data/t", 0755));
    write_file("/data/t/good", "good");
    ASSERT_EQ(0, symlink("good", "/data/t/link"));
    ASSERT_EQ(0, symlink("t", "/data/dirlink"));
    ASSERT_EQ(0, mknod("/data/t/socket", S_IFSOCK | 0600, 0));
    const std::string good = "data/t/good\n";
    const std::string missing =
        "[M/recursive_action] Ignore archive the file /data/none, No such file or directory.";
    const std::string self = "[M/write_file_to_tarball] /data/t/a.tar: file is the archive; skipping";
    const struct {
        std::string path;
        int result;
        std::string member, message;
    } cases[] = {
        {"/data/none", 0, "", missing},
        {"/data/t/link", 0, "", ""},
        {"/data/dirlink", 0, "", ""},
        {"/data/dirlink/good", 1, "data/dirlink/good\n", ""},
        {"/data/t/socket", 1, "", "[M/write_file_to_tarball] /data/t/socket: socket ignored"},
        {"/data/t/a.tar", 1, "", self},
    };
    archive_paths("/data/t/a.tar", {"/data/t/good"});
    const int descriptors = open_descriptors("self");
    for (const auto& c : cases) {
        log.clear();
        EXPECT_EQ(c.result, archive_paths("/data/t/a.tar", {c.path, "/data/t/good"})) << c.path;
        EXPECT_EQ(c.member + good, members_of("/data/t/a.tar")) << c.path;
        EXPECT_EQ(c.message.empty() ? std::vector<std::string>{} : std::vector<std::string>{c.message},
                  log.lines());
    }
    log.clear();
    EXPECT_EQ(0, archive_paths("/data/t/a.tar", {"/data/t"}));
    EXPECT_EQ("data/t/\n" + good, members_of("/data/t/a.tar"));
    EXPECT_EQ(1, log.count("socket ignored"));
    EXPECT_EQ(1, log.count("file is the archive; skipping"));

    ASSERT_EQ(0, mkfifo("/data/fifo", 0600));
    EXPECT_EQ(-13, archive_paths("/data/fifo", {"/data/t"})) << "must not wait for a reader";
    EXPECT_TRUE(log.has("[M/write_tar_file] Error opening '/data/fifo'stderr:No such device or address."));
    const UniqueFd reader(open("/data/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_EQ(-13, archive_paths("/data/fifo", {"/data/t"})) << "nor for one that stops reading";
    EXPECT_EQ(descriptors + 1, open_descriptors("self"));
}

// What happens between a file's status and its data, in one archive.
TEST(TarWriter, StaysReadableWhereFilesChangeUnderIt) {
    const std::string sentinel(600, 's');
    write_file("/data/kept", sentinel);
    write_file("/data/shrunk", "short");
    write_file("/data/emptied", "");
    write_file("/data/grown", std::string(3000, 'g'));
    write_file("/data/huge", "");
    ASSERT_EQ(0, link("/data/huge", "/data/huge2"));
    ASSERT_EQ(0, mkfifo("/data/full_fifo", 0600));
    const UniqueFd full(open("/data/full_fifo", O_RDWR | O_CLOEXEC));
    ASSERT_EQ(10, write(full.get(), "what a log", 10));
    ASSERT_EQ(0, mkfifo("/data/fifo", 0600));
    ASSERT_EQ(0, symlink("kept", "/data/link"));
    const std::string too_large = "larger than a member can be", changed = "Cannot open: Stale file handle",
                      zeros = "shorter than its size, or unreadable";
    struct Member {
        std::string path;
        int64_t recorded_size;
        nlink_t links = 1;
        bool succeeds = false;
        std::string data = "";  // none: it is not in the archive
        std::string message = "";
    };
    const Member cases[] = {
        {.path = "/data/kept", .recorded_size = 600, .succeeds = true, .data = sentinel},
        {.path = "/data/shrunk",
         .recorded_size = 5000,
         .data = "short" + std::string(4995, '\0'),
         .message = zeros},
        {.path = "/data/emptied", .recorded_size = 512, .data = std::string(512, '\0'), .message = zeros},
        {.path = "/data/grown", .recorded_size = 1025, .succeeds = true, .data = std::string(1025, 'g')},
        // It cannot be read at its start.
        {.path = "/proc/self/mem", .recorded_size = 700, .data = std::string(700, '\0'), .message = zeros},
        {.path = "/data/fifo", .recorded_size = 10, .message = changed},
        {.path = "/data/full_fifo", .recorded_size = 10, .message = changed},
        {.path = "/dev/zero", .recorded_size = 10, .message = changed},
        {.path = "/data/link",
         .recorded_size = 600,
         .message = "Cannot open: Too many levels of symbolic links"},
        {.path = "/data/gone", .recorded_size = 10, .message = "Cannot open: No such file or directory"},
        {.path = "/data/huge", .recorded_size = 077777777777 + 1LL, .links = 2, .message = too_large},
        // A second name is no link to a member that is not there.
        {.path = "/data/huge2", .recorded_size = 077777777777 + 1LL, .links = 2, .message = too_large},
    };
    const LogCapture log;
    const UniqueFd archive(open("/data/a.tar", O_WRONLY | O_CREAT | O_TRUNC, 0644));
    tb_info info = {};
    info.tar_fd = archive.get();
    const int descriptors = open_descriptors("self");
    std::string members;
    for (const auto& c : cases) {
        struct stat status = {};
        status.st_mode = S_IFREG | 0644;
        status.st_nlink = c.links;
        status.st_ino = 77;
        status.st_size = c.recorded_size;
        EXPECT_EQ(c.succeeds, write_file_to_tarball(c.path.c_str(), &status, &info)) << c.path;
        members += c.data.empty() ? "" : c.path.substr(1) + "\n";
        EXPECT_EQ(c.message.empty() ? 0 : 1, log.count(c.path + ": " + c.message)) << c.path;
    }
    struct stat unknown = {};
    unknown.st_nlink = 1;
    unknown.st_ino = 78;
    EXPECT_EQ(0, write_file_to_tarball("what", &unknown, &info));
    EXPECT_TRUE(log.has("[M/write_tar_header] what: Unknown file type"));
    EXPECT_EQ(descriptors, open_descriptors("self"));
    EXPECT_EQ(members, members_of("/data/a.tar"));
    for (const auto& c : cases) {
        if (!c.data.empty()) {
            EXPECT_EQ(c.data, output_of("tar -xOf /data/a.tar " + c.path.substr(1))) << c.path;
        }
    }
}

TEST(TarWriter, StaysReadableOnAFullDisk) {
    ASSERT_EQ(0, mkdir("/data/small", 0755));
    ASSERT_EQ(0, mount("small", "/data/small", "tmpfs", 0, "size=16k"));
    for (const int size : {100, 5000, 12288, 13824, 50000}) {
        write_file("/data/" + std::to_string(size), std::string(size, 'f'));
    }
    const struct {
        std::vector<std::string> paths;
        int result;
        std::string members;
    } cases[] = {
        {{"/data/100", "/data/50000", "/data/5000"}, 0, "data/100\ndata/5000\n"},
        {{"/data/100", "/data/100", "/data/12288"}, 1, "data/100\ndata/100\ndata/12288\n"},
        // Room for one block of the end, and none left for any header.
        {{"/data/100", "/data/100", "/data/12288", "/data/100"},
         0,
         "data/100\ndata/100\ndata/12288\ndata/100\n"},
        {{"/data/100", "/data/100", "/data/13824", "/data/100"}, 0, "data/100\ndata/100\ndata/13824\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.result, archive_paths("/data/small/a.tar", c.paths));
        EXPECT_EQ(c.members, members_of("/data/small/a.tar"));
    }
    // Beyond 32 bits too it is cut where the member began.
    constexpr int64_t FAR = int64_t{5} << 30;
    const UniqueFd archive(open("/data/small/a.tar", O_WRONLY | O_TRUNC | O_LARGEFILE));
    ASSERT_EQ(FAR, lseek64(archive.get(), FAR, SEEK_SET));
    tb_info info = {};
    info.tar_fd = archive.get();
    info.size = FAR;
    for (const char* path : {"/data/100", "/data/50000"}) {
        const struct stat status = status_of(path);
        EXPECT_EQ(status.st_size == 100, write_file_to_tarball(path, &status, &info)) << path;
        EXPECT_EQ(FAR + 1024, status_of("/data/small/a.tar").st_size) << path;
        EXPECT_EQ(FAR + 1024, lseek64(archive.get(), 0, SEEK_CUR)) << path;
    }
}

// Two archives at once, each of directories whose owners change: the lookups share their storage, and an
// archive remembers the last owners.
TEST(TarWriter, KeepsTheNamesOfOwnersApart) {
    const std::string twos(30, '2');
    write_file("/etc/passwd", "one:x:1:1::/:\n" + twos + ":x:2:2::/:\n");
    write_file("/etc/group", "one:x:1:" + std::string(1000, ',') + "\n" + twos + ":x:2:\n");
    struct Owner {
        uint32_t id;
        std::string user, group;
    };
    using Owners = std::vector<Owner>;
    const auto run = [](const std::string& path, const Owners& owners) {
        const UniqueFd archive(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
        tb_info info = {};
        info.tar_fd = archive.get();
        struct stat status = {};
        status.st_mode = S_IFDIR;
        status.st_ino = 1;
        std::vector<std::string> expected, found;
        for (int round = 0; round < 75; ++round) {
            for (const Owner& user : owners) {
                for (const Owner& group : owners) {
                    status.st_uid = user.id;
                    status.st_gid = group.id;
                    EXPECT_EQ(1, write_file_to_tarball("/d", &status, &info));
                    expected.push_back(user.user + "," + group.group);
                }
            }
        }
        const std::string bytes = read_file(path);
        for (size_t at = 0; at < bytes.size(); at += sizeof(ustar_header)) {
            const auto* const header = reinterpret_cast<const ustar_header*>(bytes.data() + at);
            found.push_back(std::string(header->uname) + "," + header->gname);
        }
        EXPECT_EQ(expected, found);
    };
    std::thread other(run, "/data/b.tar", Owners{{1, "one", "one"}, {11, "11       ", "11      \t"}});
    run("/data/a.tar", {{2, twos, twos}, {12, "12       ", "12      \t"}});
    other.join();
}

// A tree deeper than any path can be is left where no member's name is long enough.
TEST(TarWriter, LeavesADeepTreeWherePathsGetTooLong) {
    constexpr int LEVELS = 2100;
    constexpr int WITH_A_NAME = 47;  // from /data/t to /data/t/d/d and on, up to 99 characters
    ASSERT_EQ(0, mkdir("/data/t", 0755));
    UniqueFd level(open("/data/t", O_DIRECTORY));
    for (int i = 0; i < LEVELS; ++i) {
        ASSERT_EQ(0, mkdirat(level.get(), "d", 0755));
        level = UniqueFd(openat(level.get(), "d", O_DIRECTORY));
    }
    level.reset();
    const LogCapture log;
    EXPECT_EQ(1, archive_paths("/data/a.tar", {"/data/t"}));
    EXPECT_EQ(1, log.count("path too long for a member; skipping"));
    EXPECT_EQ(WITH_A_NAME, count_of(members_of("/data/a.tar"), "\n"));

    rlimit usual;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &usual));
    rlimit few = usual;
    few.rlim_cur = open_descriptors("self") + 2;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    EXPECT_EQ(0, archive_paths("/data/a.tar", {"/data/t"}));
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &usual));
    EXPECT_EQ(1, log.count("not all of its entries can be read - Too many open files"));
}
