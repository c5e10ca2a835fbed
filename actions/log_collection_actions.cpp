// The dumps that are nothing but log_collection_action.
#include "actions/log_collection_actions.h"

#include <algorithm>
#include <iterator>

#include "clients/generic_dump.h"
#include "output/record.h"

int charge_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, CHARGE_LOGS, DMD_OUTPUT_FULL);
}

int charge_monitor_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, CHARGE_MONITOR_LOGS,
                                 DMD_OUTPUT_FULL);
}

int recovery_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, RECOVERY_LOG, DMD_OUTPUT_FULL);
}

int apcp_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    const bool crashed =
        std::find(std::begin(CRASH_ERRORS), std::end(CRASH_ERRORS), error_no) != std::end(CRASH_ERRORS);
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, crashed ? TOMBSTONES : nullptr,
                                 DMD_OUTPUT_FULL);
}

int power_key_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_SHORT);
}

int sensorhub_dump_error_no_image(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_FULL);
}
