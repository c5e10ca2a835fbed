// The key detector's thread on the phone's input devices: which of them it watches, which combinations it
// knows, and what it does when a device fails or goes.
#include "triggers/key_detector.h"

#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <utility>

#include "clients/registry.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

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

// The pauses between the keys are the machine's, so the clock stands still for them.
void start_watching(const LogCapture& log) {
    hold_clock(1000);
    bring_up("", false);
    for (const char* const name : {"dsm_tp", "dsm_lcd"}) {
        dmd_client* const client = get_client_by_name(name);
        if (client != nullptr) {
            client->force_dump[1] = note_dump<'1'>;
            client->force_dump[2] = note_dump<'2'>;
        }
    }
    ASSERT_EQ(0, dmd_key_detect_sever_init());
    ASSERT_TRUE(log.wait_for("[M/dmd_key_event_detect_thread] dmd_key_event_detect_thread start!"));
}

void press(int code, int value, const std::string& device = "event1") {
    phone_do({"key", device, std::to_string(code), std::to_string(value)});
}

using presses = std::vector<std::pair<int, int>>;  // code and value

// Presses one key after the other, each when the one before was taken: those of two devices have no order.
void press_all(const LogCapture& log, const presses& events) {
    const std::string taken = "[M/dmd_key_ev_get] code:";
    for (const auto& [code, value] : events) {
        const int before = log.count(taken);
        press(code, value, code == KEY_POWER ? "event0" : "event1");
        ASSERT_TRUE(code < DOWN || code > KEY_POWER || log.wait_for(taken, before + 1));
    }
}

const presses UP_DOWN_UP = {{UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}, {UP, 1}, {UP, 0}};
const presses UP_UP_DOWN = {{UP, 1}, {UP, 0}, {UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}};
const presses HELD_DOWN = {{DOWN, 1}, {UP, 1}, {UP, 0}, {UP, 1}, {UP, 0}, {DOWN, 0}};

}  // namespace

TEST(KeyDetector, CombinationsAskForTheirDumps) {
    constexpr char UNKNOWN[] = "[M/dmd_key_dispatch] unknown combination_key!!";
    struct {
        const char* what;
        presses events;
        const char* message;
        const char* dump;
    } const cases[] = {
        {"up down up", UP_DOWN_UP, "command is 2.", "dsm_lcd 1 20005 on"},
        {"up up down", UP_UP_DOWN, "command is 3.", "dsm_tp 2 20005 on"},
        {"down held, up twice", HELD_DOWN, "command is 1.", "dsm_tp 1 20005 on"},
        {"autorepeat", {{UP, 2}, {UP, 0}, {DOWN, 1}, {DOWN, 0}, {UP, 1}, {UP, 0}}, UNKNOWN, ""},
        {"power key", {{UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}, {KEY_POWER, 1}, {UP, 1}}, UNKNOWN, ""},
        {"value of 17 bits",
         {{UP, 0x10001}, {UP, 0}, {DOWN, 1}, {DOWN, 0}, {UP, 1}, {UP, 0}},
         "command is 2.",
         "dsm_lcd 1 20005 on"},
        {"other keys do not count",
         {{UP, 1}, {DOWN - 1, 1}, {UP, 0}, {KEY_POWER + 1, 0}, {UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}},
         "command is 3.",
         "dsm_tp 2 20005 on"},
    };
    phone_do({"keys", "event0", "114", "116"});
    LogCapture log;
    start_watching(log);
    std::vector<std::string> expected;
    for (const auto& c : cases) {
        log.clear();
        press_all(log, c.events);
        ASSERT_TRUE(log.wait_for(c.message)) << c.what;
        if (c.dump[0] != '\0') {
            expected.emplace_back(c.dump);
        }
        EXPECT_TRUE(wait_until([&] { return dumps_so_far() == expected; })) << c.what;
        EXPECT_EQ(6, log.count("[M/dmd_key_dispatch] key_sequence[")) << c.what;
    }
    EXPECT_EQ(0, log.count("read event error!"));
}

TEST(KeyDetector, APauseStartsTheSequenceAgain) {
    const auto steady_ms = [] {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    };
    const uint64_t before = steady_ms(), time = dmd_key_time_ms();
    EXPECT_TRUE(before <= time && time <= steady_ms());
    LogCapture log;
    start_watching(log);
    uint64_t now = dmd_key_time_ms();
    for (const uint64_t pause : {280U, 281U}) {
        log.clear();
        press_all(log, presses(UP_DOWN_UP.begin(), UP_DOWN_UP.end() - 1));
        hold_clock(now += pause);
        press_all(log, {UP_DOWN_UP.back()});
        if (pause == 280) {
            EXPECT_TRUE(log.wait_for("[M/dmd_key_dispatch] key_sequence[5]:, code:115, time:1280,value:0"));
            EXPECT_TRUE(log.wait_for("dmd_key_dispatch combination_key:3"));
        } else {
            EXPECT_TRUE(wait_until([&] {
                const MutexLock lock(key_sequence_mutex);
                return key_sequence[0].time == now && key_sequence[0].value == 0 &&
                       key_sequence[1].time == 0 && key_sequence[4].time == 0;
            }));
            EXPECT_FALSE(log.has("dmd_key_dispatch"));
        }
    }
}

TEST(KeyDetector, TheLastKeyOfAPassCounts) {
    phone_do({"keys", "event0", "114", "116"});
    phone_do({"keys", "event2", "115"});
    LogCapture log;
    start_watching(log);
    {
        // The thread meets the lock with the first key, so that two more come in before its next pass.
        const MutexLock lock(key_sequence_mutex);
        press(UP, 1, "event2");
        ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:"));
        press(UP, 0);
        press(KEY_POWER, 1, "event0");
    }
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:", 3));
    const bool power_is_last = log.lines().back().find("code:116") != std::string::npos;
    EXPECT_TRUE(wait_until([&] {
        const MutexLock lock(key_sequence_mutex);
        return key_sequence[1].time != 0 && key_sequence[1].code == (power_is_last ? KEY_POWER : UP);
    }));
    const MutexLock lock(key_sequence_mutex);
    EXPECT_EQ(0U, key_sequence[2].time);
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
    start_watching(log);
    EXPECT_EQ(8, log.count("it's a key device"));
    EXPECT_EQ(2, log.count("[M/dmd_get_key_device] there are 8 key devices already, "));
    EXPECT_EQ("8", phone_do({"opened", "event1"}));
}

TEST(KeyDetector, NothingToWatchIsReported) {
    const std::vector<std::string> requests[] = {
        {"keys", "event1", "116"},  // no volume keys
        {"keys", "event1"},         // no keys at all
        {"answer", "event1", "bits", "-5"},
        {"answer", "event1", "open", "-13"},
    };
    LogCapture log;
    set_commercial(false);
    for (const std::vector<std::string>& request : requests) {
        SCOPED_TRACE(testing::PrintToString(request));
        phone_do({"reset"});
        phone_do(request);
        log.clear();
        EXPECT_EQ(-1, dmd_key_detect_sever_init());
        EXPECT_EQ("[M/dmd_key_detect_sever_init] no any input device found!", log.lines().back());
        EXPECT_EQ("0", phone_do({"opened", "event1"}));
    }
    ASSERT_EQ(0, rename("/dev/input", "/dev/output"));
    EXPECT_EQ(-1, dmd_key_detect_sever_init());
    EXPECT_TRUE(log.has("[M/dmd_get_key_device] can not open the event dir!"));
    set_commercial(true);
    log.clear();
    EXPECT_EQ(0, dmd_key_detect_sever_init());
    EXPECT_TRUE(log.lines().empty()) << "keys are no business of a commercial build";
}

TEST(KeyDetector, AFailedReadCostsNoKey) {
    LogCapture log;
    start_watching(log);
    press_all(log, {{UP, 1}, {UP, 0}, {DOWN, 1}});
    phone_do({"answer", "event1", "read", "-5", "15"});
    press_all(log, {{DOWN, 0}});
    phone_do({"answer", "event1", "read", "-5", "15"});
    press_all(log, {{UP, 1}, {UP, 0}});
    ASSERT_TRUE(log.wait_for("dmd_key_dispatch combination_key:3"));
    EXPECT_EQ(30, log.count("[M/dmd_key_ev_get] read event error!")) << "sixteen in a row would end it";
    EXPECT_FALSE(log.has("a key device is gone"));
}

TEST(KeyDetector, BrokenDevicesNeitherSpinNorStopTheOthers) {
    phone_do({"keys", "event0", "114", "115"});
    phone_do({"keys", "event2", "114", "115"});
    LogCapture log;
    start_watching(log);
    // The one that fails is the first of those that are watched.
    std::vector<std::string> devices;
    for (const std::string& line : log.lines()) {
        const std::string found = "the input device is:";
        if (line.find(found) != std::string::npos) {
            devices.push_back(line.substr(line.find(found) + found.size()));
        }
    }
    ASSERT_EQ(3U, devices.size());
    const int descriptors = open_descriptors("self");
    phone_do({"answer", devices[0], "read", "-5"});
    press(DOWN, 1, devices[0]);
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] a key device is gone, 2 left"));
    EXPECT_EQ(16, log.count("[M/dmd_key_ev_get] read event error!"));
    EXPECT_EQ("0", phone_do({"opened", devices[0]}));
    press(UP, 1, devices[1]);
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:115, time:"));
    phone_do({"unplug", devices[1]});
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] a key device is gone, 1 left"));
    press(UP, 1, devices[2]);
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] code:115, time:", 2));
    phone_do({"unplug", devices[2]});
    ASSERT_TRUE(log.wait_for("[M/dmd_key_ev_get] a key device is gone, 0 left"));
    EXPECT_EQ(descriptors - 3, open_descriptors("self"));
}

TEST(KeyDetector, AMissingClientIsReported) {
    phone_do({"answer", "dsm_tp", "bind", "-5"});
    LogCapture log;
    start_watching(log);
    for (const presses& combination : {UP_UP_DOWN, HELD_DOWN}) {
        log.clear();
        press_all(log, combination);
        ASSERT_TRUE(log.wait_for("[M/dmd_key_command_func] dsm_tp is not found in dmd client list."));
    }
    press_all(log, UP_DOWN_UP);
    ASSERT_TRUE(wait_until([] { return dumps_so_far().size() == 1; }));
}
