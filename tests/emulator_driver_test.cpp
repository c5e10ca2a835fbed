// The driver behind /dev/dsm: what a program sees through open, ioctl, read and select.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "platform/owned.h"
#include "tests/phone_test.h"

namespace {

constexpr unsigned long BIND = 0xc02078f1;
constexpr unsigned long STATE = 0xc02078f2;
constexpr unsigned long FORCE = 0xc02078f3;
constexpr unsigned long ERROR = 0xc02078f4;

// One request. Returns the call's result, or the negative errno; *argument holds its 32 bytes both ways.
int ask(int fd, unsigned long code, std::string* argument) {
    char bytes[32] = {};
    memcpy(bytes, argument->data(), std::min(sizeof bytes, argument->size()));
    const int result = ioctl(fd, code, bytes);
    const int reason = errno;
    argument->assign(bytes, strnlen(bytes, sizeof bytes));
    return result < 0 ? -reason : result;
}

int ask(int fd, unsigned long code, std::string argument = "") {
    return ask(fd, code, &argument);
}

// What a request that must succeed says.
std::string told(int fd, unsigned long code) {
    std::string argument;
    EXPECT_EQ(0, ask(fd, code, &argument)) << std::hex << code;
    return argument;
}

UniqueFd open_device() {
    return UniqueFd(open("/dev/dsm", O_RDWR | O_CLOEXEC));
}

UniqueFd bound(const char* client) {
    UniqueFd fd = open_device();
    EXPECT_EQ(0, ask(fd.get(), BIND, client)) << client;
    return fd;
}

// What one read of `size` bytes brings, into a buffer that begins `skew` bytes after a page.
std::string text_read(int fd, size_t size, size_t skew = 0) {
    constexpr size_t PAGE_SIZE = 4096;
    std::vector<char> memory(size + 2 * PAGE_SIZE);
    char* const page = memory.data() + PAGE_SIZE - reinterpret_cast<uintptr_t>(memory.data()) % PAGE_SIZE;
    const ssize_t count = read(fd, page + skew, size);
    EXPECT_GE(count, 0) << strerror(errno);
    return std::string(page + skew, static_cast<size_t>(std::max<ssize_t>(count, 0)));
}

int read_error(int fd) {
    char byte;
    return read(fd, &byte, 1) < 0 ? -errno : 0;
}

bool readable(int fd) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval at_once = {};
    return select(fd + 1, &set, nullptr, nullptr, &at_once) == 1;
}

// A text that differs at every place from its neighbours'.
std::string pattern(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>(i * 31 + i / 4096);
    }
    return text;
}

}  // namespace

TEST(EmulatorDriver, RefusesWhatItDoesNotKnow) {
    const UniqueFd fd = open_device();
    EXPECT_EQ(-EINVAL, ask(fd.get(), BIND, "DSM_TP"));
    EXPECT_EQ(-EINVAL, ask(fd.get(), STATE)) << "not bound";
    EXPECT_EQ(-EINVAL, read_error(fd.get()));
    EXPECT_FALSE(readable(fd.get()));
    const UniqueFd tp = bound("dsm_tp");
    // No such number, no such type, one direction only, another size.
    for (const unsigned long code : {0xc02078f8, 0xc02079f4, 0x802078f4, 0xc01078f4}) {
        EXPECT_EQ(-ENOTTY, ask(tp.get(), code)) << std::hex << code;
    }
    phone_do({"client", "dsm_new"});
    EXPECT_EQ(0, ask(fd.get(), BIND, "dsm_new"));
    EXPECT_EQ("1", phone_do({"bound", "dsm_new"}));
}

TEST(EmulatorDriver, AReadHandsOverTheOldestTextAndDropsIt) {
    const UniqueFd tp = bound("dsm_tp");
    const std::string zeros("a\0b\0", 4);
    // Two texts of exactly what is read stay two texts; what is not asked for is dropped with its text.
    const std::string full(1024, 'f');
    int error_no = 0;
    for (const std::string& text : {std::string("short"), full, full, full + "more", std::string(), zeros}) {
        report_error("dsm_tp", --error_no, text);
    }
    EXPECT_EQ("-1", told(tp.get(), ERROR));
    for (const std::string& text : {std::string("short"), full, full, full, std::string(), zeros}) {
        EXPECT_EQ(text, text_read(tp.get(), 1024));
    }
    EXPECT_EQ("", text_read(tp.get(), 1024));
    EXPECT_EQ("6", phone_do({"handed", "dsm_tp"}));
    report_error("dsm_tp", 1, "abcdef");
    report_error("dsm_tp", 1, "ghi");
    EXPECT_EQ("ab", text_read(tp.get(), 2));
    EXPECT_EQ("1", phone_do({"pending", "dsm_tp"}));
    EXPECT_EQ("ghi", text_read(tp.get(), 3));
}

TEST(EmulatorDriver, TextsOfAllSizesAreReadInOneCall) {
    constexpr size_t PIECE = 1024 * 1024;
    constexpr size_t LARGEST = 10485760;
    const UniqueFd hub = bound("dsm_sensorhub");
    for (const size_t skew : {0, 1, 4095}) {
        for (const size_t size :
             {PIECE - 4096, PIECE - 1, PIECE, PIECE + 1, 2 * PIECE, LARGEST - 1, LARGEST, LARGEST + 1}) {
            const std::string text = pattern(size);
            report_error("dsm_sensorhub", 1, text);
            report_error("dsm_sensorhub", 2, "the next one");
            EXPECT_TRUE(text.substr(0, LARGEST) == text_read(hub.get(), LARGEST, skew))
                << size << " " << skew;
            EXPECT_EQ("the next one", text_read(hub.get(), LARGEST, skew)) << size << " " << skew;
        }
    }
    // A read of exactly one piece leaves nothing for the read after it.
    report_error("dsm_sensorhub", 1, pattern(2 * PIECE));
    EXPECT_TRUE(pattern(PIECE) == text_read(hub.get(), PIECE));
    EXPECT_EQ("", text_read(hub.get(), PIECE));
}

TEST(EmulatorDriver, AForcedDumpIsReadFirstAndByWhoForcedItOnly) {
    const UniqueFd first = bound("dsm_tp");
    const UniqueFd second = bound("dsm_tp");
    EXPECT_EQ(0, ask(first.get(), FORCE, "20005"));
    EXPECT_FALSE(readable(first.get()));
    EXPECT_EQ("0", told(first.get(), ERROR));
    EXPECT_EQ("", text_read(second.get(), 1024));
    report_error("dsm_tp", 20002, "reported");
    EXPECT_EQ("forced dump of error 20005 of dsm_tp\n", text_read(first.get(), 1024));
    EXPECT_EQ("reported", text_read(first.get(), 1024));
    phone_do({"force-text", "dsm_tp", pattern(10485760)});
    EXPECT_EQ(0, ask(first.get(), FORCE, "-1"));
    EXPECT_TRUE(pattern(10485760) == text_read(first.get(), 10485760));
    EXPECT_EQ("1", phone_do({"handed", "dsm_tp"}));
}

TEST(EmulatorDriver, AForcedDumpLeavesTheNewestFolder) {
    const std::string dumps = "/data/ruvo_logs/memorydump";
    const UniqueFd hub = bound("dsm_sensorhub");
    EXPECT_EQ(0, ask(hub.get(), FORCE, "20500"));
    const std::string folder = dumps + "/" + names_in(dumps).at(0);
    EXPECT_EQ("memory image of the sensor hub\n", read_file(folder + "/rdr.bin"));
    EXPECT_GT(status_of(folder).st_mtime, status_of(dumps).st_mtime);
}

TEST(EmulatorDriver, GivesTheAnswersThatATestSets) {
    const UniqueFd tp = bound("dsm_tp");
    const UniqueFd lcd = bound("dsm_lcd");
    phone_do({"answer", "dsm_tp", "state", "-511"});
    EXPECT_EQ(-511, ask(tp.get(), STATE));
    phone_do({"answer", "*", "force", "-5", "2"});
    phone_do({"answer", "dsm_tp", "force", "77", "1"});
    EXPECT_EQ(77, ask(tp.get(), FORCE)) << "a client's own goes first";
    EXPECT_EQ(-5, ask(tp.get(), FORCE));
    EXPECT_EQ(-5, ask(lcd.get(), FORCE));
    EXPECT_EQ(0, ask(tp.get(), FORCE));
    EXPECT_EQ("forced dump of error 0 of dsm_tp\n", text_read(tp.get(), 1024));
    report_error("dsm_tp", 1, "kept");
    phone_do({"answer", "dsm_tp", "read", "-5", "1"});
    EXPECT_EQ(-EIO, read_error(tp.get()));
    EXPECT_EQ("kept", text_read(tp.get(), 1024));
    phone_do({"answer", "*", "open", "-2"});
    EXPECT_FALSE(open_device().valid());
    phone_do({"reset"});
    EXPECT_TRUE(open_device().valid());
}

TEST(EmulatorDriver, IsGoneUntilAResetWhichKeepsWhatIsBound) {
    const UniqueFd tp = bound("dsm_tp");
    phone_do({"gone"});
    EXPECT_EQ(-ENODEV, ask(tp.get(), BIND, "dsm_tp"));
    EXPECT_TRUE(readable(tp.get()));
    EXPECT_FALSE(open_device().valid());
    report_error("dsm_tp", 1, "forgotten");
    phone_do({"reset"});
    EXPECT_EQ("0", told(tp.get(), ERROR));
    EXPECT_FALSE(readable(tp.get()));
    EXPECT_EQ("0", phone_do({"handed", "dsm_tp"}));
}
