// The sensor hub's dump: which memory image is saved, and when none is made.
#include <pthread.h>

#include <future>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "platform/log.h"
#include "platform/text.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

#define DUMPS "/data/ruvo_logs/memorydump"

TEST(SensorHub, SavesTheNewestImageOfThoseThatItWaitedFor) {
    ASSERT_EQ(0, dmd_client_init());
    dmd_client* const hub = get_client_by_name("dsm_sensorhub");
    client_names_lock.lock();
    copy_text(hub->device_name, "hub");
    client_names_lock.unlock();
    const std::string bytes("a\0b\n", 4);
    const struct {
        std::string files, image, message;  // a script that fills the folder; what is saved and logged
        std::vector<std::string> request = {"image", ""};
        int result = sizeof "forced dump of error -2147483648 of dsm_sensorhub";  // with a line end
    } cases[] = {
        {"", "", "", {"property", "persist.sys.qelvan.debug.on", "0"}, -1},
        {"", "", "force dump dsm_sensorhub failed 3", {"answer", "dsm_sensorhub", "force", "3"}, 3},
        {":", "", "", {"answer", "dsm_sensorhub", "read", "-5"}, -1},
        {":", bytes, "", {"image", bytes}},
        {"mkdir 1 2 3; echo new >2/rdr.bin; touch -d @3 1 3; touch -d @4 2", "new\n", ""},
        {"mkdir 1 2 3; echo first >$(ls -U | head -n 1)/rdr.bin; touch -d @3 1 2 3", "first\n", ""},
        {"mkdir m; ln -s no z; echo m >m/rdr.bin", "m\n", "get " DUMPS "/z's information failed"},
        {"mkdir m; truncate -s 10485761 m/rdr.bin", std::string(10485760, '\0'), ""},
        {"rmdir " DUMPS, "", "unable to open " DUMPS " -No such file or directory"},
        {":", "", "open " DUMPS "/./rdr.bin failed - No such file or directory"},
        {"mkdir m; touch m/rdr.bin", "", "read " DUMPS "/m/rdr.bin return 0 - Success"},
        {"echo here >rdr.bin; touch -d @1 rdr.bin", "here\n", ""},
    };
    report_error("dsm_sensorhub", 1, "text");
    debug_output_enabled = 1;
    const int descriptors = open_descriptors("self");
    hold_sleeps();
    LogCapture log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.files + " " + c.request[0]);
        set_commercial(false);
        phone_do(c.request);
        log.clear();
        const unsigned int slept = seconds_slept();
        auto dump = std::async(std::launch::async, dmd_dump_error, hub, -2147483647 - 1, 0, "on");
        if (c.result > 3) {
            EXPECT_TRUE(wait_until([&] { return seconds_slept() - slept == 10; }));
            EXPECT_NE(0, pthread_mutex_trylock(&hub->mutex.handle));
            output_of("mkdir -p " DUMPS "; cd " DUMPS "; " + c.files +
                      "; touch -cd @2 .; touch -d @1 /data/ruvo_logs");
            let_a_sleep_pass();
        }
        EXPECT_EQ(c.result, dump.get());
        EXPECT_EQ(!c.files.empty(), exists("/data/ruvo_logs")) << "the driver's image, or the script's";
        const char* const take = "cd /data/kvdx_logs/*; cat *.txt.gz | gzip -dc; rm -rf *.txt.gz /data/ruvo*";
        EXPECT_TRUE(c.image == output_of(take));
        const std::vector<std::string> messages = messages_of("sensorhub_dump_error", log);
        EXPECT_EQ(c.message, messages.size() > 1 ? messages.back() : "");
        phone_do({"reset"});
    }
    EXPECT_TRUE(log.has("[D/sensorhub_dump_error] the lastest file name ., time 2"));
    EXPECT_TRUE(log.has("[D/sensorhub_dump_error] file .. time 1 not the lastest file, lastest file time 2"));
    EXPECT_TRUE(log.has("[D/sensorhub_dump_error] read " DUMPS "/./rdr.bin size 5"));
    const std::string head = "[Device]:hub\n[Error no]:-2147483648\n[Runing_test_switch]:on\n[Temperature]";
    EXPECT_EQ(1, count_of(read_file(RECORD), head));
    EXPECT_EQ(0U, read_file("/data/kvdx_logs/dmd_log/apr_info.txt").find("device_name\thub\nerror_no\t-21"));
    EXPECT_EQ(descriptors + 1, open_descriptors("self")) << "only the record file stays open";
}
