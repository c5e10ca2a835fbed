// The private root of a phone, its properties and its control socket.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "emulator/control_client.h"
#include "platform/owned.h"
#include "platform/properties.h"
#include "tests/phone_test.h"

namespace {

// The errno of an attempt to make a file, 0 when it can be made.
int error_of_making(const std::string& path) {
    const UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    return fd.valid() ? 0 : errno;
}

std::string refusal_of(const std::vector<std::string>& words) {
    std::string answer;
    EXPECT_FALSE(phone::request("", words, &answer)) << words[0] << ": " << answer;
    return answer;
}

UniqueFd connected() {
    sockaddr_un address;
    const unsigned length = phone::fill_address(getenv(phone::CONTROL_VARIABLE), &address);
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, connect(fd.get(), reinterpret_cast<sockaddr*>(&address), length)) << strerror(errno);
    return fd;
}

}  // namespace

TEST(EmulatorRoot, HasTheShapeOfAPhone) {
    EXPECT_EQ(std::vector<std::string>{"hwcdump"}, names_in("/data"));
    EXPECT_FALSE(exists("/dev/fuse") || exists("/home") || exists("/etc/hostname"));
    EXPECT_EQ("root system radio bluetooth graphics input audio camera log media shell ",
              output_of("cut -d: -f1 /etc/passwd | tr '\\n' ' '"));
    EXPECT_EQ(0u, geteuid());
    EXPECT_EQ(0u, std::string(getenv("PATH")).find("/system/bin:"));
    EXPECT_EQ(nullptr, getenv("USER"));
}

TEST(EmulatorRoot, WritesNothingOfTheDesk) {
    char self[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const std::string build(self, strrchr(self, '/'));
    EXPECT_TRUE(exists(build + "/dmd"));
    for (const std::string& folder : {std::string("/usr/bin"), std::string("/bin"), build,
                                      std::string("/etc/alternatives"), std::string("/sys/devices")}) {
        EXPECT_EQ(EROFS, error_of_making(folder + "/phone-was-here")) << folder;
    }
    const UniqueFd kernel_setting(open("/proc/sys/kernel/printk", O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(kernel_setting.valid());
    EXPECT_EQ(EROFS, errno);
    for (const char* folder : {"/data", "/tmp", "/dev/socket", "/dev/log", "/system/etc", "/proc", "/sys"}) {
        EXPECT_EQ(0, error_of_making(std::string(folder) + "/phone-was-here")) << folder;
    }
}

TEST(EmulatorRoot, ProcShowsThePhonesProcessesOnly) {
    EXPECT_FALSE(read_file("/proc/self/maps").empty());
    EXPECT_FALSE(read_file("/proc/meminfo").empty());
    EXPECT_TRUE(exists("/proc/" + std::to_string(getpid()) + "/task"));
    int numbers = 0;
    for (const std::string& name : names_in("/proc")) {
        numbers += name.find_first_not_of("0123456789") == std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(3, numbers) << "the first process, the media server and this one";
    const std::string number =
        output_of("grep -lx 'Name:.mediaserver' /proc/[0-9]*/status | cut -d/ -f3 | tr -d '\\n'");
    EXPECT_TRUE(S_ISDIR(status_of("/proc/" + number).st_mode));
    EXPECT_EQ(0, open_descriptors(number));
    EXPECT_EQ(0, system(("kill " + number).c_str()));
    EXPECT_TRUE(wait_until([&] { return read_file("/proc/" + number + "/status").empty(); }));
}

TEST(EmulatorRoot, ProcAndSysTakeWhatATestAdds) {
    ASSERT_EQ(0, mkdir("/proc/4242", 0755));
    write_file("/proc/4242/status", "Name:\tmediaserver\n");
    // A link to the desk's own can make room for a folder.
    ASSERT_EQ(0, unlink("/sys/devices"));
    ASSERT_EQ(0, mkdir("/sys/devices", 0755));
    // The phone's drivers have entries among the desk's, which take what is written.
    EXPECT_TRUE(exists("/sys/class/mem/null"));
    for (const char* path :
         {"/proc/touchscreen/rawdata", "/sys/class/power_supply/USB/online",
          "/sys/bus/platform/devices/qelvan_touch/loglevel", "/sys/kernel/debug/zc8830/rh"}) {
        EXPECT_FALSE(read_file(path).empty()) << path;
        write_file(path, "written\n");
        EXPECT_EQ("written\n", read_file(path)) << path;
    }
}

TEST(EmulatorControl, SetsPropertiesAsTheirServiceDoes) {
    char value[PROPERTY_VALUE_MAX];
    const std::string longest(91, 'v');
    phone_do({"property", "a.b", longest});
    EXPECT_EQ(91, property_get("a.b", value, ""));
    EXPECT_EQ(longest, phone_do({"property", "a.b"}));
    phone_do({"property", "a.b", ""});
    EXPECT_EQ("", phone_do({"property", "a.b"})) << "set, and empty";
    EXPECT_NE("", refusal_of({"property", "a.b", longest + "v"}));
    EXPECT_NE("", refusal_of({"property", "a.b", "two\nlines"}));
    EXPECT_NE("", refusal_of({"property", "not.set"}));
    for (const char* name :
         {"", "../log/x", "/etc/passwd", ".hidden", "a b", "a.name.of.thirty-two.characters_"}) {
        EXPECT_NE("", refusal_of({"property", name, "1"})) << name;
    }
}

TEST(EmulatorControl, RefusesWhatMakesNoSense) {
    const std::vector<std::vector<std::string>> bad = {
        {"report", "dsm_tp", "1"},
        {"report", "dsm_tp", "2147483648", "text"},
        {"report", "dsm_tp", "1x", "text"},
        {"names", "dsm_tp", std::string(33, 'n'), "", ""},
        {"client", ""},
        {"answer", "*", "open", "-38"},  // ENOSYS
        {"answer", "dsm_tp", "read", "1"},
        {"answer", "dsm_tp", "state", "-512"},
        {"answer", "dsm_tp", "close", "-1"},
        {"answer", "dsm_tp", "state", "-1", "-1"},
    };
    for (const auto& words : bad) {
        EXPECT_NE("", refusal_of(words));
    }
    EXPECT_NE("", refusal_of({"report", "dsm_tp", "1", std::string(33 * 1024 * 1024, 't')}));
    EXPECT_EQ("0", phone_do({"pending", "dsm_tp"}));
}

TEST(EmulatorControl, NobodyHoldsUpTheOthers) {
    std::vector<UniqueFd> silent;
    for (int i = 0; i < 40; ++i) {  // more than it keeps
        silent.push_back(connected());
    }
    const UniqueFd half_message = connected();
    ASSERT_EQ(7, write(half_message.get(), "\x10\x00\x00\x00\x01\x00\x00", 7));
    const UniqueFd no_list = connected();
    ASSERT_EQ(4, write(no_list.get(), "\xff\xff\xff\xff", 4));
    ASSERT_EQ(0, shutdown(no_list.get(), SHUT_WR));
    char byte;
    EXPECT_EQ(1, read(no_list.get(), &byte, 1)) << "it is refused";
    report_error("dsm_tp", 1, "still served");
    EXPECT_EQ("1", phone_do({"pending", "dsm_tp"}));
}
