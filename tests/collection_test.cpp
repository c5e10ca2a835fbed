// The dumps that add the logs of their own part of the phone to a report.
#include <unistd.h>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "tests/bring_up.h"

namespace {

void bring_up_with_logs() {
    bring_up("", false);
    ASSERT_EQ(0, chdir("/data"));
    output_of(
        "mkdir -p android_logs splash2 tombstones kvdx_logs/charge_monitor; touch android_logs/charge-log "
        "android_logs/charge-log.1 splash2/recovery_log tombstones/b kvdx_logs/charge_monitor/a");
}

}  // namespace

TEST(Collection, EachReportCarriesTheLogsOfItsPart) {
    using files = std::vector<std::string>;
    const files charge = {"data/android_logs/charge-log", "data/android_logs/charge-log.1"};
    const files tombstones = {"data/tombstones//", "data/tombstones/b"};
    const struct {
        const char* client;
        int slot;
        int error_no;
        std::string operation;
        files logs;
    } reports[] = {
        {"dsm_charger", 0, 1, "charge_dump_error", charge},
        {"dsm_battery", 0, 2, "charge_dump_error", charge},
        {"dsm_battery_detect", 0, 3, "charge_dump_error", charge},
        {"dsm_pmu_coul", 0, 4, "charge_dump_error", charge},
        {"dsm_charge_monitor",
         0,
         5,
         "charge_monitor_dump_error",
         {"data/kvdx_logs/charge_monitor//", "data/kvdx_logs/charge_monitor/a"}},
        {"dsm_recovery", 0, 6, "recovery_dump_error", {"splash2/recovery_log"}},
        {"dsm_apcp", 0, 20834, "apcp_dump_error", tombstones},
        {"dsm_apcp", 0, 20837, "apcp_dump_error", tombstones},
        {"dsm_apcp", 0, 20835, "apcp_dump_error", {}},
        {"dsm_sensorhub", 1, 7, "sensorhub_dump_error_no_image", {}},
    };
    bring_up_with_logs();
    for (const auto& r : reports) {
        const LogCapture log;
        report_error(r.client, r.error_no, "text");
        EXPECT_EQ(0, dmd_dump_error(get_client_by_name(r.client), r.error_no, r.slot, "on"));
        EXPECT_TRUE(log.has("[M/" + r.operation + "] " + r.client + " finish dump 4 bytes")) << r.error_no;
        EXPECT_EQ(r.logs, take_archived_beside_record()) << r.operation << " " << r.error_no;
    }
}

TEST(Collection, APowerKeysReportHasNoArchive) {
    bring_up_with_logs();
    report_error("dsm_power_key", 1, "text");
    EXPECT_EQ(0, dmd_dump_error(get_client_by_name("dsm_power_key"), 1, 1, "on"));
    EXPECT_EQ(1, count_of(read_file(RECORD), "[Error no]:01\n[Runing_test_switch]:on\n[Content]:\ntext"));
    EXPECT_EQ((std::vector<std::string>{"apr_info.txt", "dmd_record_0.txt"}), names_in(LOG_DIR));
}
