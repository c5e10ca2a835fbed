// Header blocks of archives, accounted for byte by byte.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/owned.h"
#include "tar/tar_writer.h"
#include "tests/phone_test.h"

namespace {

// Appends one member with a given status to an archive and returns the archive's bytes.
std::string archive_of(const std::string& path, const struct stat& status) {
    const UniqueFd archive(open("/data/a.tar", O_WRONLY | O_CREAT | O_TRUNC, 0644));
    tb_info info = {};
    info.tar_fd = archive.get();
    EXPECT_EQ(1, write_file_to_tarball(path.c_str(), &status, &info)) << path;
    return read_file("/data/a.tar");
}

// Compares one field and clears it, so that in the end every byte that nobody expected is seen.
void take(std::string* block, const char* what, size_t offset, std::string expected, size_t width) {
    expected.resize(width, '\0');
    EXPECT_EQ(expected, block->substr(offset, width)) << what;
    block->replace(offset, width, width, '\0');
}

// What the fields must hold; what is shorter than its field is followed by zero bytes.
struct HeaderFields {
    std::string name, mode;
    std::string uid = "0000000", gid = "0000000", size = "00000000000", mtime = "00000000000";
    char type;
    std::string uname = "root", gname = "root", major = "", minor = "";
};

struct HeaderCase {
    const char* what;
    std::string path;
    mode_t mode;
    uint32_t uid = 0, gid = 0;
    int64_t mtime = 0;
    dev_t device = 0;
    HeaderFields fields;
};

}  // namespace

TEST(TarHeader, HoldsWhatTheStatusSaysAndNothingElse) {
    constexpr uint32_t EIGHT_DIGITS = 017654321;
    constexpr uint32_t NINE_DIGITS = 0123456701;
    constexpr uint32_t TEN_DIGITS = 01234567012;
    constexpr int64_t TWELVE_DIGITS = 0123456701234;
    write_file("/etc/passwd", "root:x:0:0::/:/bin/sh\n:x:7:7::/:/bin/sh\nsystem:x:1000:1000::/:/bin/sh\n" +
                                  std::string(40, 'u') + ":x:" + std::to_string(EIGHT_DIGITS) + ":0::/:\n");
    write_file("/etc/group", "root:x:0:\nlog:x:1007:system\n" + std::string(31, 'g') +
                                 ":x:" + std::to_string(NINE_DIGITS) + ":\n");
    const std::string kmsg = "/data/android_logs/kmsgcat-log";
    ASSERT_EQ(0, mkdir("/data/android_logs", 0750));
    write_file(kmsg, std::string(1000, 'k'));
    const std::string long_name = std::string(49, 'd') + "/" + std::string(49, 'e');
    const HeaderCase cases[] = {
        {.what = "regular",
         .path = kmsg,
         .mode = S_IFREG | 0644,
         .uid = 1000,
         .gid = 1007,
         .mtime = 1433153472,
         .fields = {.name = kmsg.substr(1),
                    .mode = "0100644",
                    .uid = "0001750",
                    .gid = "0001757",
                    .size = "00000001750",
                    .mtime = "12533027700",
                    .type = '0',
                    .uname = "system",
                    .gname = "log"}},
        {.what = "directory of 99 characters",
         .path = long_name,
         .mode = S_IFDIR | 0750,
         .fields = {.name = long_name + "/", .mode = "0040750", .type = '5'}},
        {.what = "no such user or group",
         .path = "//d",
         .mode = S_IFDIR | 01777,
         .uid = 2000,
         .gid = 3003,
         .mtime = 1,
         .fields = {.name = "d/",
                    .mode = "0041777",
                    .uid = "0003720",
                    .gid = "0005673",
                    .mtime = "00000000001",
                    .type = '5',
                    .uname = "2000     ",
                    .gname = "3003    \t"}},
        {.what = "block device, empty user name",
         .path = "b",
         .mode = S_IFBLK | 0600,
         .uid = 7,
         .device = 0x51234,
         .fields = {.name = "b",
                    .mode = "0060600",
                    .uid = "0000007",
                    .type = '4',
                    .major = "0000022",
                    .minor = "0000064"}},
        {.what = "character device",
         .path = "c",
         .mode = S_IFCHR | 0666,
         .device = 0x0103,
         .fields = {.name = "c", .mode = "0020666", .type = '3', .major = "0000001", .minor = "0000003"}},
        {.what = "FIFO",
         .path = "f",
         .mode = S_IFIFO | 0600,
         .device = 0x0103,
         .fields = {.name = "f", .mode = "0010600", .type = '6'}},
        {.what = "one and two digits too many, names of 40 and 31 characters",
         .path = "d",
         .mode = S_IFDIR,
         .uid = EIGHT_DIGITS,
         .gid = NINE_DIGITS,
         .mtime = TWELVE_DIGITS,
         .fields = {.name = "d/",
                    .mode = "0040000",
                    .uid = "7654321",
                    .gid = "23456701",
                    .mtime = "23456701234",
                    .type = '5',
                    .uname = std::string(31, 'u'),
                    .gname = std::string(31, 'g')}},
        {.what = "three digits too many",
         .path = "d",
         .mode = S_IFDIR,
         .uid = TEN_DIGITS,
         .mtime = INT64_MAX,
         .fields = {.name = "d/",
                    .mode = "0040000",
                    .uid = "",
                    .mtime = "37777777777",
                    .type = '5',
                    .uname = std::to_string(TEN_DIGITS) + " "}},
        {.what = "before 1970",
         .path = "d",
         .mode = S_IFDIR,
         .mtime = -1,
         .fields = {.name = "d/", .mode = "0040000", .mtime = "37777777777", .type = '5'}},
    };
    for (const HeaderCase& c : cases) {
        SCOPED_TRACE(c.what);
        struct stat status = {};
        status.st_mode = c.mode;
        status.st_nlink = 1;
        status.st_dev = 1;
        status.st_size = 1000;
        status.st_uid = c.uid;
        status.st_gid = c.gid;
        status.st_mtime = static_cast<time_t>(c.mtime);
        status.st_rdev = c.device;
        const std::string archive = archive_of(c.path, status);
        ASSERT_EQ(c.fields.type == '0' ? 512U + 1024U : 512U, archive.size());
        std::string block = archive.substr(0, 512);

        unsigned int sum = 8 * ' ';
        for (size_t i = 0; i < block.size(); ++i) {
            sum += i >= 148 && i < 156 ? 0 : static_cast<unsigned char>(block[i]);
        }
        char checksum[8];
        snprintf(checksum, sizeof checksum, "%06o", sum);
        take(&block, "chksum", 148, std::string(checksum) + '\0' + ' ', 8);
        take(&block, "name", 0, c.fields.name, 100);
        take(&block, "mode", 100, c.fields.mode, 8);
        take(&block, "uid", 108, c.fields.uid, 8);
        take(&block, "gid", 116, c.fields.gid, 8);
        take(&block, "size", 124, c.fields.size, 12);
        take(&block, "mtime", 136, c.fields.mtime, 12);
        take(&block, "typeflag", 156, std::string(1, c.fields.type), 1);
        take(&block, "magic and version", 257, std::string("ustar\0  ", 8), 8);
        take(&block, "uname", 265, c.fields.uname, 32);
        take(&block, "gname", 297, c.fields.gname, 32);
        take(&block, "devmajor", 329, c.fields.major, 8);
        take(&block, "devminor", 337, c.fields.minor, 8);
        EXPECT_EQ(std::string(512, '\0'), block);
    }
}

// Of an archive that takes no more than its beginning.
TEST(TarHeader, TellsSizesBeyond32Bits) {
    const UniqueFd large(open("/data/large", O_WRONLY | O_CREAT | O_LARGEFILE, 0644));
    ASSERT_EQ(0, ftruncate64(large.get(), 077777777777));
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
    const UniqueFd from(ends[0]), to(ends[1]);
    tb_info info = {};
    info.tar_fd = to.get();
    const struct stat status = status_of("/data/large");
    EXPECT_EQ(0, write_file_to_tarball("/data/large", &status, &info));
    std::string block(512, '\0');
    EXPECT_EQ(512, read(from.get(), block.data(), block.size()));
    take(&block, "size", 124, "77777777777", 12);
}

TEST(TarHeader, NamesTheFirstLinkAsItWasPassed) {
    write_file("/data/first", "content");
    ASSERT_EQ(0, link("/data/first", "/data/second"));
    char first[] = "/data/first";
    char second[] = "/data/second";
    char* operands[] = {first, second, nullptr};
    EXPECT_EQ(1, write_tar_file("/data/a.tar", operands));
    const std::string archive = read_file("/data/a.tar");
    ASSERT_EQ(512U + 512U + 512U + 1024U, archive.size());
    EXPECT_EQ('0', archive[156]);
    std::string block = archive.substr(1024, 512);
    take(&block, "name", 0, "data/second", 100);
    take(&block, "size", 124, "00000000000", 12);
    take(&block, "typeflag", 156, "1", 1);
    take(&block, "linkname", 157, "/data/first", 100);
    EXPECT_EQ(std::string(1024, '\0'), archive.substr(1536)) << "the end of the archive";
}
