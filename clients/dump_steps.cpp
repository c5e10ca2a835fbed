// What the dump operations have in common.
#include "clients/dump_steps.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "clients/dsm_device.h"
#include "output/dump_archive.h"
#include "platform/log.h"
#include "platform/text.h"

namespace {

// The decimal text of an error number in a force request: sign, ten digits and the terminator.
constexpr size_t ERROR_NUMBER_SIZE = 12;

// Error number and second of the latest standalone dump. Another thread may have just begun it, so its file
// need not exist yet.
std::atomic<uint64_t> latest_dump{0};

// Whether the dump's name is free: neither a dump in progress nor a file of any day has it.
bool is_name_free(const dmd_error_info& info) {
    const uint64_t dump =
        uint64_t{static_cast<uint32_t>(info.error_no)} << 32 | static_cast<uint32_t>(info.time);
    if (latest_dump.exchange(dump) == dump) {
        return false;
    }
    char path[PATH_SIZE];
    for (const char* const ending : {".txt", ".txt.gz"}) {
        format_dump_stem(path, sizeof path, info);
        append_text(path, sizeof path, "%s", ending);
        if (access(path, F_OK) == 0) {
            return false;
        }
    }
    return true;
}

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

dmd_error_info describe_standalone_dump(const dmd_client* client, int error_no, const char* RT_switch) {
    dmd_error_info info = start_description(error_no);
    while (!is_name_free(info)) {
        sleep(1);
        info = start_description(error_no);
    }
    describe_client(&info, client, RT_switch);
    return info;
}

UniqueBuffer start_dump(const char* operation, const dmd_client* client, const char* RT_switch) {
    if (client == nullptr || RT_switch == nullptr) {
        LOG_M_AS(operation, "dmd client or RT_switch is NULL pointer\n");
        return nullptr;
    }
    UniqueBuffer buffer = allocate_zeroed(size_t{client->buffer_size} + 1);
    if (buffer == nullptr) {
        LOG_M_AS(operation, "dmd dump buff malloc failed\n");
    }
    return buffer;
}

int read_error_text(const char* operation, dmd_client* client, char* buffer, const char* RT_switch,
                    dmd_error_info* info) {
    errno = 0;  // read does not set it when there is nothing to read
    const int got = static_cast<int>(dsm_read_pending(client, buffer));
    if (got <= 0) {
        LOG_M_AS(operation, "read %s return %d - %s\n", client->info->name, got, strerror(errno));
        return got;
    }
    LOG_M_AS(operation, "%s finish dump %d bytes\n", client->info->name, got);
    describe_client(info, client, RT_switch);
    return got;
}

int request_force_dump(const char* operation, dmd_client* client, int error_no) {
    dsm_argument argument = {};
    format_text(argument.text, ERROR_NUMBER_SIZE, "%d", error_no);
    const int result = dsm_request(client->fd, DSM_IOCTL_FORCE_DUMP, &argument);
    if (result != 0) {
        LOG_M_AS(operation, "force dump %s failed %d\n", client->info->name, result);
    }
    return result;
}
