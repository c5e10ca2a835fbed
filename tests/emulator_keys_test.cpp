// The phone's input devices: what a program sees through open, ioctl, poll and read; and what a person and an
// application do to a phone.
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "emulator/control_client.h"
#include "tests/bring_up.h"

namespace {

constexpr char POWER[] = "/dev/input/event0";
constexpr char VOLUME[] = "/dev/input/event1";

UniqueFd device(const std::string& path) {
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(fd.valid()) << path << ": " << strerror(errno);
    return fd;
}

// What a request for bits answers: the bytes that it has copied and the numbers of the bits in them, as
// "8: 0 1"; or the negative errno.
std::string bits(const UniqueFd& fd, unsigned long code) {
    unsigned char bytes[256] = {};
    const int result = ioctl(fd.get(), code, bytes);
    if (result < 0) {
        return std::to_string(-errno);
    }
    std::string out = std::to_string(result) + ":";
    for (size_t bit = 0; bit < sizeof bytes * 8; ++bit) {
        if ((bytes[bit / 8] >> bit % 8 & 1) != 0) {
            out += " " + std::to_string(bit);
        }
    }
    return out;
}

// What one read of `count` events brings, as "1/115/1 " for each (type, code, value); or the negative errno.
std::string events(const UniqueFd& fd, size_t count = 64) {
    std::vector<input_event> all(count);
    const ssize_t size = read(fd.get(), all.data(), count * sizeof(input_event));
    if (size < 0) {
        return std::to_string(-errno);
    }
    all.resize(static_cast<size_t>(size) / sizeof(input_event));
    std::string out;
    for (const input_event& event : all) {
        out += std::to_string(event.type) + "/" + std::to_string(event.code) + "/" +
               std::to_string(event.value) + " ";
    }
    return out;
}

int polled(const UniqueFd& fd) {
    pollfd one = {fd.get(), POLLIN, 0};
    EXPECT_LE(0, poll(&one, 1, 0));
    return one.revents;
}

const std::string EMPTY = std::to_string(-EAGAIN);
const std::string GONE = std::to_string(-ENODEV);

}  // namespace

TEST(EmulatorKeys, EachDeviceSaysWhatItHas) {
    const std::string word = std::to_string(sizeof(long)) + ":";
    const std::string invalid = std::to_string(-EINVAL);
    const struct {
        const char* path;
        unsigned long code;
        std::string bits;
    } cases[] = {
        {POWER, 0x807c4520, word + " 0 1"},
        {POWER, 0x807c4521, "96: 116"},
        {VOLUME, 0x807c4520, word + " 0 1"},
        {VOLUME, 0x807c4521, "96: 114 115"},
        {VOLUME, EVIOCGBIT(EV_KEY, 15), "15: 114 115"},
        {VOLUME, EVIOCGBIT(EV_REP, 124), invalid},
        {VOLUME, 0xc02078f4, invalid},
        {"/dev/input/event2", 0x807c4520, word + " 0 3"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.bits, bits(device(c.path), c.code)) << c.path << " " << std::hex << c.code;
    }
}

TEST(EmulatorKeys, EveryOpenFileGetsEachEventUntilTheDeviceIsUnplugged) {
    const UniqueFd first = device(VOLUME);
    const UniqueFd second = device(VOLUME);
    EXPECT_EQ(0, polled(first));
    EXPECT_EQ(EMPTY, events(first));
    EXPECT_EQ("2", phone_do({"key", "event1", "115", "1"}));
    EXPECT_EQ("2", phone_do({"key", "event1", "115", "-2147483648"}));
    EXPECT_EQ("4", phone_do({"queued", "event1"}));
    EXPECT_EQ(POLLIN, polled(first));
    EXPECT_EQ("1/115/1 0/0/0 1/115/-2147483648 0/0/0 ", events(first));
    EXPECT_EQ("1/115/1 ", events(second, 1));
    EXPECT_EQ("0/0/0 1/115/-2147483648 ", events(second, 2));
    phone_do({"unplug", "event1"});
    EXPECT_EQ(POLLHUP | POLLERR, polled(first));
    EXPECT_EQ(POLLHUP | POLLERR | POLLIN, polled(second));
    EXPECT_EQ(GONE, events(second));
    EXPECT_EQ(GONE, bits(first, 0x807c4520));
    phone_do({"reset"});
    EXPECT_EQ(EMPTY, events(second));
}

TEST(EmulatorKeys, APersonPressesKeysInWords) {
    // A sanitizer cannot look for leaks in a process that the phone does not show by number.
    const std::string key = "ASAN_OPTIONS=detect_leaks=0 /.phone/build/phone key ";
    const UniqueFd volume = device(VOLUME);
    // Nobody watches the power key yet, and then one word is wrong: nothing is pressed.
    EXPECT_NE(0, system((key + "up power 2>/dev/null").c_str()));
    const UniqueFd power = device(POWER);
    EXPECT_NE(0, system((key + "up down* 2>/dev/null").c_str()));
    EXPECT_EQ(EMPTY, events(volume));
    EXPECT_EQ("", output_of(key + "up down+ up= power down-"));
    EXPECT_EQ("1/115/1 0/0/0 1/115/0 0/0/0 1/114/1 0/0/0 1/115/2 0/0/0 1/114/0 0/0/0 ", events(volume));
    EXPECT_EQ("1/116/1 0/0/0 1/116/0 0/0/0 ", events(power));
}

TEST(EmulatorCommand, SendsTheWholeMessage) {
    std::string why;
    EXPECT_FALSE(phone::request("", {"command", "dsm_tp", "on", "1"}, &why));
    EXPECT_NE(std::string::npos, why.find("does not listen")) << why;
    EXPECT_FALSE(phone::request("", {"command", std::string(32, 'n'), "on", "1"}, &why));
    const DaemonProcess dmd({});
    ASSERT_TRUE(dmd.wait_for_log("command server init success"));
    const std::string longest(31, 'n');
    phone_do({"command", longest, "off", "-2147483648"});
    EXPECT_TRUE(dmd.wait_for_log("Received msg - name:" + longest + " data:-2147483648\n"));
    EXPECT_TRUE(dmd.wait_for_log("Removing client on fd "));
}
