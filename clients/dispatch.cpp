// The error dispatch.
#include "clients/dispatch.h"

#include "platform/log.h"

namespace {

using slots = client_dump_operation[SLOT_COUNT];

int run_slot(const char* operation, dmd_client* client, const slots& operations, int error_no, int slot,
             const char* RT_switch) {
    // Slot numbers come unchecked from the configuration; one out of range is like an empty one.
    if (slot < 0 || slot >= SLOT_COUNT || operations[slot] == nullptr) {
        return 0;
    }
    const int result = operations[slot](client, error_no, RT_switch);
    LOG_D_AS(operation, "dump %s error %d return %d\n", client->info->name, error_no, result);
    return result;
}

}  // namespace

int dmd_dump_error(dmd_client* client, int error_no, int slot, const char* RT_switch) {
    return client == nullptr ? 0 : run_slot(__FUNCTION__, client, client->dump, error_no, slot, RT_switch);
}

int dmd_force_dump_error(dmd_client* client, int error_no, int slot, const char* RT_switch) {
    return client == nullptr ? 0
                             : run_slot(__FUNCTION__, client, client->force_dump, error_no, slot, RT_switch);
}

int dmd_clear_error(dmd_client* client, int argument) {
    if (client == nullptr || client->clear == nullptr) {
        return 0;
    }
    const int result = client->clear(client, argument);
    LOG_D("clear %s error return %d\n", client->info->name, result);
    return result;
}
