// The dumps that are not generic, each reached as on a phone: by a trigger of the configuration.
#include "platform/log.h"
#include "servers/listen_server.h"
#include "servers/poll_server.h"
#include "tests/bring_up.h"

TEST(OwnDumps, AreReachedByTheConfiguration) {
    struct {
        std::string action, message;
    } const rows[] = {
        {"dsm_charger+0", "M/charge_dump_error] dsm_charger finish dump 4"},
        {"dsm_battery+0", "M/charge_dump_error] dsm_battery finish dump 4"},
        {"dsm_power_key+1", "M/power_key_dump_error] dsm_power_key finish dump 4"},
        {"dsm_apcp+0", "M/apcp_dump_error] dsm_apcp finish dump 4"},
        {"dsm_battery_detect+0", "M/charge_dump_error] dsm_battery_detect finish dump 4"},
        {"dsm_sensorhub+0", "M/sensorhub_dump_error] dsm_sensorhub finish dump 4"},
        {"dsm_sensorhub+1", "M/sensorhub_dump_error_no_image] dsm_sensorhub finish dump 4"},
        {"dsm_anc_hs+0", "M/maxim_smartpa_dump_error] dsm_anc_hs finish dump 4"},
        {"dsm_maxim_smartpa+1", "M/maxim_smartpa_dump_error] dsm_maxim_smartpa finish dump 4"},
        {"dsm_recovery+0", "M/recovery_dump_error] dsm_recovery finish dump 4"},
        {"dsm_pmu_coul+0", "M/charge_dump_error] dsm_pmu_coul finish dump 4"},
        {"dsm_charge_monitor+0", "M/charge_monitor_dump_error] dsm_charge_monitor finish dump 4"},
        {"dsm_audio+0", "D/codec_dump_error] codec_dump on error_no 1."},
        {"dsm_audio+1", "D/hifi_force_dump_error] hifi_force_dump on error_no 1."},
        {"dsm_audio+2", "D/media_dump_error] media_dump on error_no 2."},
        {"dsm_audio+3", "M/dsm_dump_error] dsm_audio finish dump 4"},
        {"dsm_audio+4", "M/audio_dump_error] dsm_audio finish dump 4"},
        {"dsm_audio+5", "M/soc_hifi_reset_dump_error] dsm_audio finish dump 4"},
        {"dsm_audio+6", "M/codec_hifi_reset_dump_error] dsm_audio finish dump 4"},
    };
    std::string actions[3];  // of seven clients each, and of the one that is watched
    for (const auto& row : rows) {
        actions[(&row - rows) / 7] += row.action + " ";
    }
    std::string triggers = "num_triggers 3\n";
    for (const std::string& action : actions) {
        triggers += trigger(static_cast<int>(&action - actions), action + "dsm_key+0");
    }
    debug_output_enabled = 1;
    const LogCapture log;
    bring_up(section_text("listen", "dsm_key", triggers) +
                 section_text("poll", "dsm_hall",
                              "num_triggers 1\n" + trigger(1, "dsm_tp+1 dsm_tp+1 dsm_tp+2 dsm_lcd+1")),
             false);
    for (const auto& row : rows) {
        report_error(row.action.substr(0, row.action.find('+')), 1, "text");
    }
    for (int error_no = 0; error_no < 3; ++error_no) {
        report_error("dsm_key", error_no, "text");
    }
    ASSERT_EQ(0, dmd_listen_server_init());
    ASSERT_TRUE(log.wait_for("[M/dsm_dump_error] dsm_key finish dump", 3));
    for (const auto& row : rows) {
        EXPECT_TRUE(log.has("[" + row.message)) << row.action;
    }
    phone_do({"state", "dsm_hall", "1"});
    ASSERT_EQ(0, dmd_poll_server_init());
    ASSERT_TRUE(log.wait_for("[M/lcd_force_dump_error] dump graphic file:", 2));
    phone_do({"state", "dsm_hall", "0"});
    EXPECT_TRUE(log.has("[M/tp_force_dump_error] read tp diff capacity OK!"));
    EXPECT_TRUE(log.has("[D/tp_debug_disable] tp debug diable called, error_no:1."));
}
