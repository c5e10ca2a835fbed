// The phone's input devices: what a program sees through open, poll and read; and what a person and an
// application do to a phone.
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "tests/bring_up.h"

namespace {

constexpr char POWER[] = "/dev/input/event0";
constexpr char VOLUME[] = "/dev/input/event1";

UniqueFd device(const std::string& path) {
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(fd.valid()) << path << ": " << strerror(errno);
    return fd;
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

}  // namespace

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
    EXPECT_EQ(std::to_string(-ENODEV), events(second));
    phone_do({"reset"});
    EXPECT_EQ(EMPTY, events(second));
}

TEST(EmulatorKeys, APersonPressesKeysInWords) {
    // A sanitizer cannot look for leaks in a process that the phone does not show by number.
    const std::string key = "ASAN_OPTIONS=detect_leaks=0 /.phone/build/phone key --no-wait ";
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
    const DaemonProcess dmd({});
    ASSERT_TRUE(dmd.wait_for_log("command server init success"));
    const std::string longest(31, 'n');
    phone_do({"command", longest, "off", "-2147483648"});
    EXPECT_TRUE(dmd.wait_for_log("Received msg - name:" + longest + " data:-2147483648\n"));
    EXPECT_TRUE(dmd.wait_for_log("Removing client on fd "));
}
