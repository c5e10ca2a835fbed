// The common part of the two monitoring servers: triggers, actions, and what the driver says of a device.
#include "servers/monitor.h"

#include "clients/registry.h"
#include "platform/log.h"

namespace {

// The result of a device description request that is not one.
constexpr int UNKNOWN_REQUEST = -22;

}  // namespace

const trigger_info* find_trigger(const trigger_info* triggers, int32_t complete_end, int error_no) {
    for (int32_t i = 0; i < complete_end; ++i) {
        if (triggers[i].action_num > 0 && triggers[i].error_no == error_no) {
            return &triggers[i];
        }
    }
    return nullptr;
}

void run_actions(const char* operation, const trigger_info& trigger,
                 int (*dispatch)(dmd_client* client, int error_no, int slot, const char* RT_switch),
                 const char* missing) {
    for (int k = 0; k < trigger.action_num; ++k) {
        const action_config& action = trigger.actions[k];
        LOG_M_AS(operation, "action-%d, cname-%s, info-%d\n", k, action.client_name, action.action_info);
        dmd_client* const target = get_client_by_name(action.client_name);
        if (target == nullptr) {
            LOG_M_AS(operation, "%s\n", missing);
            continue;
        }
        dispatch(target, trigger.error_no, action.action_info, trigger.running_test_switch);
    }
}

void log_triggers(const char* operation, const trigger_info* triggers, int32_t complete_end) {
    if (!debug_output_enabled) {
        return;
    }
    for (int32_t i = 0; i < complete_end; ++i) {
        LOG_D_AS(operation, "triggers[%d] error no-%d, action num-%d\n", i, triggers[i].error_no,
                 triggers[i].action_num);
        for (int k = 0; k < triggers[i].action_num; ++k) {
            const action_config& action = triggers[i].actions[k];
            LOG_D_AS(operation, "action[%d] client name-%s, action info-%d\n", k, action.client_name,
                     action.action_info);
        }
    }
}

int get_device_info(const char* operation, const char* failed, dmd_client* client, int fd,
                    unsigned int request) {
    dsm_argument argument = {};
    const int result = dsm_request(fd, request, &argument);
    if (result != 0) {
        LOG_D_AS(operation, "%s %s %d\n", client->info->name, failed, result);
        return result;
    }
    const MutexLock lock(client_names_lock);
    switch (request) {
        case DSM_IOCTL_GET_DEVICE_NAME:
            copy_text(client->device_name, argument.text);
            return 0;
        case DSM_IOCTL_GET_IC_NAME:
            copy_field(client->ic_name, argument.text);
            return 0;
        case DSM_IOCTL_GET_MODULE_NAME:
            copy_field(client->module_name, argument.text);
            return 0;
        default:
            LOG_M_AS(operation, "ignore unkown cmd!");
            return UNKNOWN_REQUEST;
    }
}
