// Reading a client's error text and reporting it.
#include "clients/generic_dump.h"

#include "clients/dump_steps.h"
#include "output/record.h"
#include "platform/log.h"
#include "platform/text.h"

namespace {

// Room in bytes for a list of extra files that is built while a dump runs.
constexpr size_t EXTRA_FILES_SIZE = 1024;

}  // namespace

int log_collection_action(const char* operation, dmd_client* client, int error_no, const char* RT_switch,
                          const char* extra_files, int mode, const collection_steps& steps) {
    dmd_error_info info = start_description(error_no);
    const UniqueBuffer buffer = start_dump(operation, client, RT_switch);
    if (buffer == nullptr) {
        return -1;
    }
    if (steps.prepare != nullptr) {
        steps.prepare(client, error_no, RT_switch);
    }
    {
        const MutexLock lock(client->mutex);
        const int got = read_error_text(operation, client, buffer.get(), RT_switch, &info);
        if (got > 0) {
            char list[EXTRA_FILES_SIZE];
            if (steps.list_extra_files != nullptr) {
                steps.list_extra_files(list, sizeof list);
                extra_files = list;
            }
            dmd_direct_output(buffer.get(), got, &info, extra_files, mode);
        }
    }
    LOG_D_AS(operation, "%s finish dump\n", client->info->name);
    if (steps.finish != nullptr) {
        steps.finish();
    }
    return 0;
}

int dsm_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_FULL);
}

int dsm_force_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    dmd_error_info info = start_description(error_no);
    const UniqueBuffer buffer = start_dump(__FUNCTION__, client, RT_switch);
    if (buffer == nullptr) {
        return -1;
    }
    const MutexLock lock(client->mutex);
    const int result = request_force_dump(__FUNCTION__, client, error_no);
    if (result != 0) {
        return result;
    }
    const int got = read_error_text(__FUNCTION__, client, buffer.get(), RT_switch, &info);
    if (got > 0) {
        // A forced report names the client: the driver's device name belongs to errors that a device raised.
        copy_text(info.device_name, client->info->name);
        dmd_direct_output(buffer.get(), got, &info, nullptr, DMD_OUTPUT_FULL);
    }
    return 0;
}
