// The phone's input devices: what a program sees through open, ioctl, poll and read; and what else a person
// does to a phone that has keys.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "emulator/control_client.h"
#include "platform/owned.h"
#include "tests/phone_test.h"
#include "triggers/command_message.h"

namespace {

constexpr char POWER[] = "/dev/input/event0";
constexpr char VOLUME[] = "/dev/input/event1";
constexpr char TOUCH[] = "/dev/input/event2";
// The requests for the types of events and for the keys, with room for 124 bytes.
constexpr unsigned long TYPES = 0x807c4520;
constexpr unsigned long KEYS = 0x807c4521;
// Stands behind what a request copies.
constexpr char UNTOUCHED = '\x5a';

UniqueFd device(const std::string& path, int flags = O_RDONLY | O_NONBLOCK) {
    UniqueFd fd(open(path.c_str(), flags | O_CLOEXEC));
    EXPECT_TRUE(fd.valid()) << path << ": " << strerror(errno);
    return fd;
}

// The result of a request, or its negative errno; and the numbers of the bits that it sets, as "114 115 ".
int ask(int fd, unsigned long code, std::string* bits) {
    char bytes[256];
    memset(bytes, UNTOUCHED, sizeof bytes);
    const int result = ioctl(fd, code, bytes);
    bits->clear();
    for (int bit = 0; bit < result * 8; ++bit) {
        if ((bytes[bit / 8] >> bit % 8 & 1) != 0) {
            *bits += std::to_string(bit) + " ";
        }
    }
    if (result >= 0) {
        EXPECT_EQ(UNTOUCHED, bytes[result]) << std::hex << code;
    }
    return result < 0 ? -errno : result;
}

std::string bits(int fd, unsigned long code) {
    std::string out;
    EXPECT_LT(0, ask(fd, code, &out)) << strerror(errno);
    return out;
}

// What one read with room for `size` bytes brings, as "1/115/1 " for each event (type, code, value); or the
// negative errno.
std::string events(int fd, size_t size = 64 * sizeof(input_event)) {
    std::vector<char> bytes(size + 1);
    const ssize_t count = read(fd, bytes.data(), size);
    if (count < 0) {
        return std::to_string(-errno);
    }
    EXPECT_EQ(0u, static_cast<size_t>(count) % sizeof(input_event));
    std::string out;
    for (size_t at = 0; at < static_cast<size_t>(count); at += sizeof(input_event)) {
        input_event event;
        memcpy(&event, bytes.data() + at, sizeof event);
        EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(event.input_event_sec), 60);
        out += std::to_string(event.type) + "/" + std::to_string(event.code) + "/" +
               std::to_string(event.value) + " ";
    }
    return out;
}

// The poll events that hold.
short polled(int fd) {
    pollfd one = {fd, POLLIN | POLLRDNORM, 0};
    EXPECT_LE(0, poll(&one, 1, 0));
    return one.revents;
}

const std::string EMPTY = std::to_string(-EAGAIN);
const std::string GONE = std::to_string(-ENODEV);
const std::string NO_ROOM = std::to_string(-EINVAL);
constexpr short READABLE = POLLIN | POLLRDNORM;

}  // namespace

TEST(EmulatorKeys, EachDeviceSaysWhatItHas) {
    const struct {
        const char* path;
        const char* types;
        const char* keys;
    } rows[] = {{POWER, "0 1 ", "116 "}, {VOLUME, "0 1 ", "114 115 "}, {TOUCH, "0 3 ", ""}};
    for (const auto& row : rows) {
        const UniqueFd fd = device(row.path);
        EXPECT_EQ(row.types, bits(fd.get(), TYPES)) << row.path;
        EXPECT_EQ(row.keys, bits(fd.get(), KEYS)) << row.path;
    }
    // The result is what was copied: all there is, or what there is room for.
    const UniqueFd volume = device(VOLUME);
    const struct {
        unsigned long code;
        int result;
    } sizes[] = {
        {TYPES, sizeof(long)},       {EVIOCGBIT(0, 3), 3},         {KEYS, 96},
        {EVIOCGBIT(EV_KEY, 15), 15}, {EVIOCGBIT(EV_KEY, 200), 96}, {EVIOCGBIT(EV_REP, 124), -EINVAL},
        {0xc02078f4, -EINVAL},
    };
    for (const auto& row : sizes) {
        std::string ignored;
        EXPECT_EQ(row.result, ask(volume.get(), row.code, &ignored)) << std::hex << row.code;
    }
    phone_do({"keys", "event1", "0", "767", "116"});
    EXPECT_EQ("0 116 767 ", bits(volume.get(), KEYS));
}

TEST(EmulatorKeys, EveryOpenFileGetsEachEventAndItsEnd) {
    const UniqueFd first = device(VOLUME);
    const UniqueFd second = device(VOLUME, O_RDWR);
    const UniqueFd power = device(POWER);
    EXPECT_EQ("2", phone_do({"opened", "event1"}));
    EXPECT_EQ(0, polled(first.get()));
    EXPECT_EQ(EMPTY, events(second.get()));
    EXPECT_EQ("2", phone_do({"key", "event1", "115", "1"}));
    EXPECT_EQ("2", phone_do({"key", "event1", "115", "-2147483648"}));
    EXPECT_EQ("4", phone_do({"queued", "event1"}));
    EXPECT_EQ("0", phone_do({"queued", "event0"}));
    EXPECT_EQ(0, polled(power.get()));
    EXPECT_EQ(READABLE, polled(first.get()));
    EXPECT_EQ("1/115/1 0/0/0 1/115/-2147483648 0/0/0 ", events(first.get()));
    EXPECT_EQ(0, polled(first.get()));
    // Whole events only, and the rest with the next read.
    EXPECT_EQ(NO_ROOM, events(second.get(), sizeof(input_event) - 1));
    EXPECT_EQ("1/115/1 ", events(second.get(), 2 * sizeof(input_event) - 1));
    EXPECT_EQ("0/0/0 1/115/-2147483648 ", events(second.get(), 2 * sizeof(input_event)));
    EXPECT_EQ(READABLE, polled(second.get()));
    EXPECT_EQ("0", phone_do({"queued", "event1"}));
    EXPECT_EQ("0/0/0 ", events(second.get()));
    EXPECT_EQ("1", phone_do({"key", "event0", "65535", "2"}));
    EXPECT_EQ("1/65535/2 0/0/0 ", events(power.get()));
}

TEST(EmulatorKeys, ADeviceThatIsUnpluggedFailsUntilAReset) {
    const UniqueFd has_all = device(VOLUME);
    phone_do({"key", "event1", "115", "1"});
    const UniqueFd has_more = device(VOLUME);
    phone_do({"key", "event1", "115", "0"});
    EXPECT_EQ("1/115/1 0/0/0 1/115/0 0/0/0 ", events(has_all.get()));
    phone_do({"unplug", "event1"});
    EXPECT_EQ(POLLHUP | POLLERR, polled(has_all.get()));
    EXPECT_EQ(POLLHUP | POLLERR | READABLE, polled(has_more.get()));
    EXPECT_EQ(GONE, events(has_more.get()));
    std::string ignored;
    EXPECT_EQ(-ENODEV, ask(has_all.get(), TYPES, &ignored));
    EXPECT_EQ(-1, open(VOLUME, O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(ENODEV, errno);
    EXPECT_FALSE(phone::request("", {"key", "event1", "115", "1"}, &ignored));
    // The other devices stay.
    EXPECT_EQ(0, polled(device(POWER).get()));
    phone_do({"keys", "event1", "1"});
    phone_do({"answer", "event1", "read", "-5"});
    phone_do({"reset"});
    EXPECT_EQ("114 115 ", bits(has_all.get(), KEYS));
    EXPECT_EQ(EMPTY, events(has_more.get()));
    EXPECT_EQ("2", phone_do({"key", "event1", "115", "1"}));
    EXPECT_EQ(READABLE, polled(has_all.get()));
}

TEST(EmulatorKeys, APersonPressesKeysInWords) {
    // A sanitizer cannot look for leaks in a process that the phone does not show by number.
    const std::string key = "ASAN_OPTIONS=detect_leaks=0 /.phone/build/phone key ";
    const UniqueFd volume = device(VOLUME);
    // Nobody watches the power key yet, and then one word is wrong: nothing is pressed.
    EXPECT_NE(0, system((key + "up power 2>/dev/null").c_str()));
    const UniqueFd power = device(POWER);
    EXPECT_NE(0, system((key + "up down* 2>/dev/null").c_str()));
    EXPECT_EQ(EMPTY, events(volume.get()));
    EXPECT_EQ("", output_of(key + "up down+ up= power down- power="));
    EXPECT_EQ("1/115/1 0/0/0 1/115/0 0/0/0 1/114/1 0/0/0 1/115/2 0/0/0 1/114/0 0/0/0 ", events(volume.get()));
    EXPECT_EQ("1/116/1 0/0/0 1/116/0 0/0/0 1/116/2 0/0/0 ", events(power.get()));
}

TEST(EmulatorCommand, SendsTheWholeMessageAndWaitsForNobody) {
    const std::string longest(31, 'n');
    std::string why;
    EXPECT_FALSE(phone::request("", {"command", longest, "on", "1"}, &why));
    EXPECT_NE(std::string::npos, why.find("does not listen")) << why;
    const UniqueFd daemon(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = {AF_UNIX, DMD_COMMAND_SOCKET};
    ASSERT_EQ(0, bind(daemon.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, listen(daemon.get(), 0));
    phone_do({"command", longest, "off", "-2147483648"});
    // The one place of its queue is taken.
    EXPECT_FALSE(phone::request("", {"command", "dsm_tp", "on", "1"}, &why));
    EXPECT_NE(std::string::npos, why.find("no more commands")) << why;
    const UniqueFd taken(accept4(daemon.get(), nullptr, nullptr, SOCK_CLOEXEC));
    dmd_command_message message[2] = {};
    ASSERT_EQ(40, read(taken.get(), message, sizeof message));
    EXPECT_STREQ(longest.c_str(), message[0].client_name);
    EXPECT_EQ(uint32_t{DMD_TEST_SWITCH_OFF}, message[0].test_switch_type);
    EXPECT_EQ(INT32_MIN, message[0].data);
    EXPECT_EQ(0, read(taken.get(), message, sizeof message));
}
