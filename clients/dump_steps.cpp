// What the dump operations have in common.
#include "clients/dump_steps.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include "clients/dsm_device.h"
#include "daemon/log.h"
#include "platform/text.h"

namespace {

// The decimal text of an error number in a force request: sign, ten digits and the terminator.
constexpr size_t ERROR_NUMBER_SIZE = 12;

}  // namespace

dmd_error_info start_description(int error_no) {
    dmd_error_info info = {};
    info.time = static_cast<int32_t>(time(nullptr));
    info.error_no = error_no;
    return info;
}

void describe_client(dmd_error_info* info, const dmd_client* client, const char* RT_switch) {
    const MutexLock lock(client_names_lock);
    copy_text(info->device_name, client->device_name);
    copy_field(info->ic_name, client->ic_name);
    copy_field(info->module_name, client->module_name);
    copy_field(info->running_test_switch, RT_switch);
}

UniqueBuffer start_dump(const char* name, const dmd_client* client, const char* RT_switch) {
    if (client == nullptr || RT_switch == nullptr) {
        LOG_M_AS(name, "dmd client or RT_switch is NULL pointer\n");
        return nullptr;
    }
    UniqueBuffer buffer = allocate_zeroed(size_t{client->buffer_size} + 1);
    if (buffer == nullptr) {
        LOG_M_AS(name, "dmd dump buff malloc failed\n");
    }
    return buffer;
}

int read_error_text(const char* name, dmd_client* client, char* buffer, const char* RT_switch,
                    dmd_error_info* info) {
    const int got = static_cast<int>(dsm_read_pending(client, buffer));
    if (got <= 0) {
        LOG_M_AS(name, "read %s return %d - %s\n", client->info->name, got, strerror(errno));
        return got;
    }
    LOG_M_AS(name, "%s finish dump %d bytes\n", client->info->name, got);
    describe_client(info, client, RT_switch);
    return got;
}

int request_force_dump(const char* name, dmd_client* client, int error_no) {
    dsm_argument argument = {};
    format_text(argument.text, ERROR_NUMBER_SIZE, "%d", error_no);
    const int result = dsm_request(client->fd, DSM_IOCTL_FORCE_DUMP, &argument);
    if (result != 0) {
        LOG_M_AS(name, "force dump %s failed %d\n", client->info->name, result);
    }
    return result;
}
