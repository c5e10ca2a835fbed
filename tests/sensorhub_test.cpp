// The sensor hub's dump: which memory image is saved, and when none is made.
#include <pthread.h>

#include <climits>
#include <future>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

namespace {

#define IMAGES "/data/ruvo_logs/memorydump"

// The dump's result is the length of what the driver hands over when it is forced.
constexpr int FORCED = sizeof "forced dump of error -2147483648 of dsm_sensorhub\n" - 1;

int dump() {
    return dmd_dump_error(get_client_by_name("dsm_sensorhub"), INT_MIN, 0, "on");
}

// Dumps while the hub leaves its images: what the script makes in the folder for them. Returns what is saved.
std::string saved_image(const std::string& script) {
    phone_do({"image", ""});  // the driver makes none
    output_of("rm -rf /data/ruvo_logs; mkdir -p " IMAGES);
    const unsigned int slept = seconds_slept();
    auto dumped = std::async(std::launch::async, dump);
    EXPECT_TRUE(wait_until([slept] { return seconds_slept() - slept == 10; }));
    output_of("cd " IMAGES "; " + script + "; touch -cd @2 " IMAGES "; touch -d @1 /data/ruvo_logs");
    let_a_sleep_pass();
    EXPECT_EQ(FORCED, dumped.get());
    return output_of("cd /data/kvdx_logs/dmd_log; cat *.txt.gz 2>/dev/null | gzip -dcf; rm -f *.txt.gz");
}

}  // namespace

TEST(SensorHub, SavesTheNewestImage) {
    const struct {
        const char* what;
        const char* script;
        std::string image, message;  // empty without one
    } cases[] = {
        {"in the newest folder", "mkdir 1 2 3; echo new >2/rdr.bin; touch -d @3 1 3; touch -d @4 2", "new\n",
         ""},
        {"in the first of those of one time",
         "mkdir 1 2 3; echo first >$(ls -U | head -n 1)/rdr.bin; touch -d @3 1 2 3", "first\n", ""},
        {"beside the folders", "echo here >rdr.bin; touch -d @1 rdr.bin", "here\n", ""},
        {"larger than the buffer", "mkdir m; truncate -s 10485761 m/rdr.bin", std::string(10485760, '\0'),
         ""},
        {"beside what is no folder", "mkdir m; ln -s no z; echo m >m/rdr.bin", "m\n",
         "get " IMAGES "/z's information failed"},
        {"no folder for all", "rmdir " IMAGES, "", "unable to open " IMAGES " -No such file or directory"},
        {"none", "true", "", "open " IMAGES "/./rdr.bin failed - No such file or directory"},
        {"an empty one", "mkdir m; touch m/rdr.bin", "", "read " IMAGES "/m/rdr.bin return 0 - Success"},
    };
    bring_up("", false);
    hold_sleeps();
    for (const auto& c : cases) {
        const LogCapture log;
        EXPECT_TRUE(c.image == saved_image(c.script)) << c.what;
        const std::vector<std::string> messages = messages_of("sensorhub_dump_error", log);
        EXPECT_EQ(c.message, messages.size() > 1 ? messages.back() : "") << c.what;
    }
}

TEST(SensorHub, WithoutAForcedDumpNoImageIsWaitedFor) {
    bring_up("", true);
    const LogCapture log;
    EXPECT_EQ(-1, dump()) << "a commercial build asks for none";
    set_commercial(false);
    phone_do({"answer", "dsm_sensorhub", "force", "3"});
    EXPECT_EQ(3, dump());
    EXPECT_EQ("[M/sensorhub_dump_error] force dump dsm_sensorhub failed 3", log.lines().back());
    EXPECT_FALSE(exists("/data/ruvo_logs")) << "where the driver would leave it";
    phone_do({"reset"});
    phone_do({"answer", "dsm_sensorhub", "read", "-5"});
    EXPECT_EQ(-1, dump()) << "forced, but not read";
    EXPECT_EQ(0U, seconds_slept()) << "nothing is waited for";
}

TEST(SensorHub, TheErrorIsReportedAndTheClientLockedUntilTheImageIsThere) {
    bring_up("", false);
    dmd_client* const hub = get_client_by_name("dsm_sensorhub");
    name_device("dsm_sensorhub", "hub");
    report_error("dsm_sensorhub", 1, "text");
    const std::string image("a\0b\n", 4);
    phone_do({"image", image});
    const int descriptors = open_descriptors("self");
    hold_sleeps();
    const LogCapture log;
    auto dumped = std::async(std::launch::async, dump);
    EXPECT_TRUE(wait_until([] { return seconds_slept() == 10; }));
    EXPECT_NE(0, pthread_mutex_trylock(&hub->mutex.handle));
    let_a_sleep_pass();
    EXPECT_EQ(FORCED, dumped.get());
    EXPECT_EQ(image, output_of("gzip -dc /data/kvdx_logs/dmd_log/*.txt.gz"));
    EXPECT_EQ(1,
              count_of(read_file(RECORD), "[Device]:hub\n[Error no]:-2147483648\n[Runing_test_switch]:on\n"));
    EXPECT_EQ(0U, read_file("/data/kvdx_logs/dmd_log/apr_info.txt").find("device_name\thub\nerror_no\t-21"));
    EXPECT_EQ(descriptors + 1, open_descriptors("self")) << "only the record file stays open";
}
