// The dumps that add the logs of their own part of the phone to a report.
#include <unistd.h>

#include <tuple>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "tests/bring_up.h"

TEST(Collection, EachReportCarriesTheLogsOfItsPart) {
    set_commercial(false);
    ASSERT_EQ(0, dmd_client_init());
    ASSERT_EQ(0, chdir("/data"));
    output_of(
        "mkdir -p android_logs splash2 tombstones kvdx_logs/charge_monitor; cd android_logs; touch "
        "charge-log charge-log.1 ../splash2/recovery_log ../tombstones/b ../kvdx_logs/charge_monitor/a");
    const std::string charge = "data/android_logs/charge-log.1 data/android_logs/charge-log ";
    const std::string monitor = "data/kvdx_logs/charge_monitor/ data/kvdx_logs/charge_monitor/a ";
    const std::string tombstones = "data/tombstones/ data/tombstones/b ";
    using Row = std::tuple<std::string, std::string, int, int, std::string>;
    for (const auto& [operation, client, slot, error_no, logs] : {
             Row("charge_dump_error", "dsm_charger", 0, 1, charge),
             Row("charge_dump_error", "dsm_battery", 0, 2, charge),
             Row("charge_dump_error", "dsm_battery_detect", 0, 3, charge),
             Row("charge_dump_error", "dsm_pmu_coul", 0, 4, charge),
             Row("charge_monitor_dump_error", "dsm_charge_monitor", 0, 5, monitor),
             Row("recovery_dump_error", "dsm_recovery", 0, 6, "splash2/recovery_log "),
             Row("apcp_dump_error", "dsm_apcp", 0, 20834, tombstones),
             Row("apcp_dump_error", "dsm_apcp", 0, 20837, tombstones),
             Row("apcp_dump_error", "dsm_apcp", 0, 20835, ""),
             Row("sensorhub_dump_error_no_image", "dsm_sensorhub", 1, 7, ""),
             Row("power_key_dump_error", "dsm_power_key", 1, 8, "none"),
         }) {
        const LogCapture log;
        dmd_client* const bound = get_client_by_name(client.c_str());
        report_error(client, error_no, "text");
        phone_do({"answer", client, "read", "-5", "1"});
        EXPECT_EQ(0, dmd_dump_error(bound, error_no, slot, "on")) << "nothing read, nothing reported";
        EXPECT_EQ(0, dmd_dump_error(bound, error_no, slot, "on"));
        EXPECT_EQ(-1, bound->dump[slot](nullptr, error_no, "on"));
        EXPECT_EQ((std::vector<std::string>{"read " + client + " return -1 - Input/output error",
                                            client + " finish dump 4 bytes",
                                            "dmd client or RT_switch is NULL pointer"}),
                  messages_of(operation, log));
        EXPECT_EQ(
            logs == "none" ? "" : "data/kvdx_logs/dmd_log/dmd_record_0.txt " + logs,
            output_of("cd kvdx_logs/dmd_log; cat *.gz | gzip -dc | tar -t | tr -s '\n/' ' /'; rm -f *.gz"));
    }
    EXPECT_EQ(11, count_of(read_file(RECORD), "[Error no]:"));
}
