// The dumps that are nothing but log_collection_action.
#include "actions/log_collection_actions.h"

#include "clients/generic_dump.h"
#include "output/record.h"

int charge_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch,
                                 "/data/android_logs/charge-log.1 /data/android_logs/charge-log",
                                 DMD_OUTPUT_FULL);
}

int charge_monitor_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, "/data/kvdx_logs/charge_monitor/",
                                 DMD_OUTPUT_FULL);
}

int recovery_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, "splash2/recovery_log",
                                 DMD_OUTPUT_FULL);
}

int apcp_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    const bool crashed = error_no == 20834 || error_no == 20837;
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch,
                                 crashed ? "/data/tombstones/" : nullptr, DMD_OUTPUT_FULL);
}

int power_key_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_SHORT);
}

int sensorhub_dump_error_no_image(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_FULL);
}
