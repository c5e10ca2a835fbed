// Reading a client's error text and reporting it.
#include "clients/generic_dump.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include "clients/dsm_device.h"
#include "daemon/log.h"
#include "output/error_info.h"
#include "output/record.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

// The decimal text of an error number in a force request: sign, ten digits and the terminator.
constexpr size_t ERROR_NUMBER_SIZE = 12;

using buffer_pointer = decltype(allocate_zeroed(0));

// What every dump does before it takes the client's lock: checks its arguments, takes the time and allocates
// the buffer (one byte more than the driver fills, so that it holds text). Null when the dump cannot start.
buffer_pointer start_dump(const char* name, const dmd_client* client, const char* RT_switch,
                          dmd_error_info* info) {
    if (client == nullptr || RT_switch == nullptr) {
        LOG_M_AS(name, "dmd client or RT_switch is NULL pointer\n");
        return nullptr;
    }
    info->time = static_cast<int32_t>(time(nullptr));
    auto buffer = allocate_zeroed(size_t{client->buffer_size} + 1);
    if (buffer == nullptr) {
        LOG_M_AS(name, "dmd dump buff malloc failed\n");
    }
    return buffer;
}

// Reads the pending text and reports it under the given device name. Nothing is reported when nothing is
// read.
void read_and_report(const char* name, dmd_client* client, char* buffer, const char* device_name,
                     const char* RT_switch, const char* extra_files, int mode, dmd_error_info* info)
    REQUIRES(client->mutex) {
    const int got = static_cast<int>(dsm_read_pending(client, buffer));
    if (got <= 0) {
        LOG_M_AS(name, "read %s return %d - %s\n", client->info->name, got, strerror(errno));
        return;
    }
    LOG_M_AS(name, "%s finish dump %d bytes\n", client->info->name, got);
    copy_text(info->device_name, device_name);
    copy_field(info->ic_name, client->ic_name);
    copy_field(info->module_name, client->module_name);
    copy_field(info->running_test_switch, RT_switch);
    dmd_direct_output(buffer, got, info, extra_files, mode);
}

}  // namespace

int log_collection_action(const char* name, dmd_client* client, int error_no, const char* RT_switch,
                          const char* extra_files, int mode) {
    dmd_error_info info = {};
    info.error_no = error_no;
    const auto buffer = start_dump(name, client, RT_switch, &info);
    if (buffer == nullptr) {
        return -1;
    }
    {
        const MutexLock lock(client->mutex);
        read_and_report(name, client, buffer.get(), client->device_name, RT_switch, extra_files, mode, &info);
    }
    LOG_D_AS(name, "%s finish dump\n", client->info->name);
    return 0;
}

int dsm_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__func__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_FULL);
}

int dsm_force_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    dmd_error_info info = {};
    info.error_no = error_no;
    const auto buffer = start_dump(__func__, client, RT_switch, &info);
    if (buffer == nullptr) {
        return -1;
    }
    dsm_argument argument = {};
    format_text(argument.text, ERROR_NUMBER_SIZE, "%d", error_no);
    const MutexLock lock(client->mutex);
    const int result = dsm_request(client->fd, DSM_IOCTL_FORCE_DUMP, &argument);
    if (result != 0) {
        LOG_M("force dump %s failed %d\n", client->info->name, result);
        return result;
    }
    // A forced report names the client: the driver's device name belongs to errors that a device raised.
    read_and_report(__func__, client, buffer.get(), client->info->name, RT_switch, nullptr, DMD_OUTPUT_FULL,
                    &info);
    return 0;
}
