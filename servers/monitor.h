// What the listen server and the poll server do alike with their clients. Messages carry `operation`, the
// name of the caller. Where the servers word a message differently, the caller passes the words.
#pragma once

#include <cstdint>

#include "clients/client.h"
#include "clients/dsm_device.h"
#include "config/settings.h"
#include "platform/text.h"

// The first complete trigger whose number is `error_no`, or null.
const trigger_info* find_trigger(const trigger_info* triggers, int32_t complete_end, int error_no);

// Runs the trigger's actions in order through `dispatch`. Where an action's client is not in the registry,
// logs the message `missing` and runs the other actions all the same.
void run_actions(const char* operation, const trigger_info& trigger,
                 int (*dispatch)(dmd_client* client, int error_no, int slot, const char* RT_switch),
                 const char* missing);

// Logs the triggers up to the last complete one, and their actions, while debug output is on.
void log_triggers(const char* operation, const trigger_info* triggers, int32_t complete_end);

// Asks the driver on `fd`, which is bound to the client, for one of the client's names (a request of the
// DSM_IOCTL_GET_..._NAME kind) and stores it in the registry's record, under the lock of the clients' names.
// 0; what the driver answered when that is not 0, after a debug message with `failed` in it; or -22 for
// another request.
int get_device_info(const char* operation, const char* failed, dmd_client* client, int fd,
                    unsigned int request);

// Fills in the client's names: the driver's where get_info says that it answers, otherwise the section's.
template <typename Record>
void describe_device(Record* record, const setting_info& setting,
                     int (*get_info)(Record* record, unsigned int request)) {
    dmd_client* const client = record->dclient;
    if (get_info(record, DSM_IOCTL_GET_DEVICE_NAME) < 0) {
        const MutexLock lock(client_names_lock);
        copy_text(client->device_name, setting.device_name);
    }
    if (get_info(record, DSM_IOCTL_GET_IC_NAME) < 0) {
        const MutexLock lock(client_names_lock);
        copy_field(client->ic_name, setting.ic_name);
    }
    if (get_info(record, DSM_IOCTL_GET_MODULE_NAME) < 0) {
        const MutexLock lock(client_names_lock);
        copy_field(client->module_name, setting.module_name);
    }
}
