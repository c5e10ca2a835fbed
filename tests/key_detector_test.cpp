// The key detector's thread on the phone's input devices: which of them it watches, which combinations it
// knows, and what it does when a device fails or goes.
#include "triggers/key_detector.h"

#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "clients/registry.h"
#include "tests/bring_up.h"

namespace {

constexpr int UP = KEY_VOLUMEUP;
constexpr int DOWN = KEY_VOLUMEDOWN;

std::mutex dumps_mutex;
std::vector<std::string> dumps;

// Stands in the client's slots in place of what takes a dump of the hardware.
template <char slot>
int note_dump(dmd_client* client, int error_no, const char* RT_switch) {
    const std::lock_guard<std::mutex> lock(dumps_mutex);
    dumps.push_back(std::string(client->info->name) + " " + slot + " " + std::to_string(error_no) + " " +
                    RT_switch);
    return 0;
}

std::vector<std::string> dumps_so_far() {
    const std::lock_guard<std::mutex> lock(dumps_mutex);
    return dumps;
}

void start_watching() {
    bring_up("", false);
    for (const char* const name : {"dsm_tp", "dsm_lcd"}) {
        dmd_client* const client = get_client_by_name(name);
        if (client != nullptr) {
            client->force_dump[1] = note_dump<'1'>;
            client->force_dump[2] = note_dump<'2'>;
        }
    }
    ASSERT_EQ(0, dmd_key_detect_sever_init());
}

void press(int code, int value, const std::string& device = "event1") {
    phone_do({"key", device, std::to_string(code), std::to_string(value)});
}

struct press_event {
    int code;
    int value;
};

using presses = std::vector<press_event>;

void press_all(const presses& events) {
    for (const press_event& event : events) {
        press(event.code, event.value, event.code == KEY_POWER ? "event0" : "event1");
    }
}

const presses UP_DOWN_UP = {{UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}, {UP, 1}, {UP, 0}};
const presses UP_UP_DOWN = {{UP, 1}, {UP, 0}, {UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}};
const presses HELD_DOWN = {{DOWN, 1}, {UP, 1}, {UP, 0}, {UP, 1}, {UP, 0}, {DOWN, 0}};

}  // namespace

TEST(KeyDetector, CombinationsAskForTheirDumps) {
    struct {
        const char* what;
        presses events;
        const char* message;  // the detector's last
        std::vector<std::string> dump;
    } const cases[] = {
        {"up down up", UP_DOWN_UP, "command is 2.", {"dsm_lcd 1 20005 on"}},
        {"up up down", UP_UP_DOWN, "command is 3.", {"dsm_tp 2 20005 on"}},
        {"down held, up twice", HELD_DOWN, "command is 1.", {"dsm_tp 1 20005 on"}},
        {"autorepeat",
         {{UP, 1}, {UP, 2}, {UP, 2}, {UP, 2}, {UP, 2}, {UP, 0}},
         "unknown combination_key!!",
         {}},
        {"three times up",
         {{UP, 1}, {UP, 0}, {UP, 1}, {UP, 0}, {UP, 1}, {UP, 0}},
         "unknown combination_key!!",
         {}},
        {"value of 17 bits",
         {{UP, 0x10001}, {UP, 0}, {DOWN, 1}, {DOWN, 0}, {UP, 1}, {UP, 0}},
         "command is 2.",
         {"dsm_lcd 1 20005 on"}},
        {"other keys do not count",
         {{UP, 1}, {KEY_MUTE, 1}, {UP, 0}, {KEY_POWER + 1, 0}, {UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}},
         "command is 3.",
         {"dsm_tp 2 20005 on"}},
    };
    LogCapture log;
    start_watching();
    ASSERT_TRUE(log.wait_for("[M/dmd_key_event_detect_thread] dmd_key_event_detect_thread start!"));
    for (const auto& c : cases) {
        log.clear();
        const std::vector<std::string> before = dumps_so_far();
        press_all(c.events);
        ASSERT_TRUE(log.wait_for(c.message)) << c.what;
        std::vector<std::string> expected = before;
        expected.insert(expected.end(), c.dump.begin(), c.dump.end());
        EXPECT_TRUE(wait_until([&] { return dumps_so_far() == expected; })) << c.what;
        EXPECT_EQ(6, log.count("[M/dmd_key_dispatch] key_sequence[")) << c.what;
    }
    EXPECT_EQ(0, log.count("read event error!"));
}

TEST(KeyDetector, APowerKeyInASequenceMakesItUnknown) {
    phone_do({"keys", "event0", "116", "114"});
    LogCapture log;
    start_watching();
    press_all({{UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}});
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:", 4));
    press(KEY_POWER, 1, "event0");
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:116, time:"));
    press_all({{UP, 1}});
    EXPECT_TRUE(log.wait_for("[M/dmd_key_dispatch] unknown combination_key!!"));
    EXPECT_TRUE(dumps_so_far().empty());
}

TEST(KeyDetector, APauseStartsTheSequenceAgain) {
    LogCapture log;
    start_watching();
    press_all({{UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}, {UP, 1}});
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:", 5));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    // Would complete the sequence; it begins another one instead, which holds no release first.
    press(UP, 0);
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:", 6));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(log.has("dmd_key_dispatch"));
    press_all(UP_UP_DOWN);
    ASSERT_TRUE(log.wait_for("[M/dmd_key_dispatch] dmd_key_dispatch combination_key:2"));
}

TEST(KeyDetector, WatchesTheDevicesWithVolumeKeys) {
    struct {
        const char* name;
        std::vector<std::string> keys;
    } const devices[] = {{"event0", {"114"}}, {"event1", {"30", "115"}}, {"event2", {"116", "113"}}};
    for (const auto& device : devices) {
        std::vector<std::string> words = {"keys", device.name};
        words.insert(words.end(), device.keys.begin(), device.keys.end());
        phone_do(words);
    }
    // What else may lie there is passed over, and nothing waits for a writer.
    ASSERT_EQ(0, mkdir("/dev/input/by-path", 0755));
    ASSERT_EQ(0, mkfifo("/dev/input/pipe", 0644));
    write_file("/dev/input/file", "");
    ASSERT_EQ(0, symlink("/nowhere", "/dev/input/dangling"));
    LogCapture log;
    set_commercial(false);
    ASSERT_EQ(0, dmd_key_detect_sever_init());
    EXPECT_EQ(2, log.count("[M/dmd_is_key_device] key event fd found."));
    EXPECT_TRUE(log.has("[M/dmd_get_key_device] it's a key device, the input device is:event0"));
    EXPECT_TRUE(log.has("[M/dmd_get_key_device] it's a key device, the input device is:event1"));
    EXPECT_EQ(3, log.count("[M/dmd_is_key_device] Can't send ioctl to the fd."));
    EXPECT_EQ("0", phone_do({"opened", "event2"}));
}

TEST(KeyDetector, LeavesMoreThanEightDevicesAlone) {
    for (int i = 3; i < 12; ++i) {
        const std::string name = "/dev/input/event" + std::to_string(i);
        ASSERT_EQ(0, symlink("event1", name.c_str()));
    }
    LogCapture log;
    start_watching();
    EXPECT_EQ(8, log.count("it's a key device"));
    EXPECT_EQ(2, log.count("[M/dmd_get_key_device] there are 8 key devices already, "));
    EXPECT_EQ("8", phone_do({"opened", "event1"}));
}

TEST(KeyDetector, NothingToWatchIsReported) {
    struct {
        const char* what;
        std::vector<std::string> request;
        const char* message;
    } const cases[] = {
        {"no volume keys", {"keys", "event1", "116"}, nullptr},
        {"no keys at all", {"keys", "event1"}, nullptr},
        {"its driver fails",
         {"answer", "event1", "bits", "-5"},
         "[M/dmd_is_key_device] Can't send ioctl to the fd."},
        {"it cannot be opened", {"answer", "event1", "open", "-13"}, nullptr},
    };
    LogCapture log;
    set_commercial(false);
    for (const auto& c : cases) {
        phone_do({"reset"});
        phone_do(c.request);
        log.clear();
        EXPECT_EQ(-1, dmd_key_detect_sever_init()) << c.what;
        EXPECT_TRUE(log.has("[M/dmd_key_detect_sever_init] no any input device found!")) << c.what;
        EXPECT_EQ(c.message != nullptr ? 2U : 1U, log.lines().size()) << c.what;
        EXPECT_TRUE(c.message == nullptr || log.has(c.message)) << c.what;
        EXPECT_EQ("0", phone_do({"opened", "event1"})) << c.what;
    }
    ASSERT_EQ(0, rename("/dev/input", "/dev/output"));
    EXPECT_EQ(-1, dmd_key_detect_sever_init());
    EXPECT_TRUE(log.has("[M/dmd_get_key_device] can not open the event dir!"));
    set_commercial(true);
    log.clear();
    EXPECT_EQ(0, dmd_key_detect_sever_init());
    EXPECT_TRUE(log.lines().empty()) << "keys are no business of a commercial build";
}

TEST(KeyDetector, ABrokenDeviceNeitherSpinsNorStopsTheOthers) {
    phone_do({"keys", "event0", "114", "115"});
    LogCapture log;
    start_watching();
    const int descriptors = open_descriptors("self");
    phone_do({"answer", "event0", "read", "-5"});
    press(DOWN, 1, "event0");
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] read event error!"));
    press_all(UP_DOWN_UP);
    ASSERT_TRUE(log.wait_for("dmd_key_dispatch combination_key:3"));
    EXPECT_LE(log.count("read event error!"), 20) << "once for each wait";
    // Mended, it goes on where it was.
    log.clear();
    phone_do({"answer", "event0", "read", "0"});
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:114, time:"));
    // Unplugged with an event that nobody can read any more.
    phone_do({"answer", "event0", "read", "-5"});
    press(DOWN, 0, "event0");
    phone_do({"unplug", "event0"});
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] a key device is gone, 1 left"));
    EXPECT_LE(log.count("read event error!"), 20);
    EXPECT_EQ(descriptors - 1, open_descriptors("self"));
    phone_do({"unplug", "event1"});
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] a key device is gone, 0 left"));
}

TEST(KeyDetector, AMissingClientIsReported) {
    phone_do({"answer", "dsm_tp", "bind", "-5"});
    LogCapture log;
    start_watching();
    press_all(UP_UP_DOWN);
    ASSERT_TRUE(log.wait_for("[M/dmd_key_command_func] dsm_tp is not found in dmd client list."));
    press_all(HELD_DOWN);
    ASSERT_TRUE(log.wait_for("[M/dmd_key_command_func] dsm_tp is not found in dmd client list.", 2));
    press_all(UP_DOWN_UP);
    ASSERT_TRUE(wait_until([] { return dumps_so_far().size() == 1; }));
    for (const int combination : {1, 4, 0, -1, 10}) {
        log.clear();
        dmd_key_command_func(combination);
        EXPECT_EQ((std::vector<std::string>{"combination_key is " + std::to_string(combination) + ".",
                                            "command is 0.", "ignored unknown key command."}),
                  messages_of("dmd_key_command_func", log));
    }
}
