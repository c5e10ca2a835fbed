// Requests to the driver, and the operations that bind, release and clear a client.
#include "clients/dsm_device.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

// Opens the driver and binds the descriptor to the client. Returns what the request returned, or -1 when the
// driver could not be opened, after a message.
int open_and_bind(const char* operation, const char* name, UniqueFd* fd) {
    fd->reset(repeat_interrupted([] { return open(DSM_DEVICE, O_RDWR | O_CLOEXEC); }));
    if (!fd->valid()) {
        LOG_M_AS(operation, "can't open %s \n", DSM_DEVICE);
        return -1;
    }
    dsm_argument argument = {};
    copy_text(argument.text, name);
    return dsm_request(fd->get(), DSM_IOCTL_BIND, &argument);
}

}  // namespace

int dsm_request(int fd, unsigned int request, dsm_argument* argument) {
    return repeat_interrupted([&] { return ioctl(fd, request, argument->text); });
}

int bind_client_fd(const char* name) {
    char client_name[DSM_ARGUMENT_SIZE + 1];  // `name` may fill its field, without a terminator
    copy_text(client_name, name);
    UniqueFd fd;
    const int result = open_and_bind(__FUNCTION__, client_name, &fd);
    if (!fd.valid()) {
        return result;
    }
    if (result != 0) {
        LOG_M("can't bind client %s\n", client_name);
        // A positive refusal must not pass for a descriptor.
        return result < 0 ? result : -1;
    }
    LOG_D("bind client %s success\n", client_name);
    return fd.release();
}

int dsm_client_init(dmd_client* client) {
    if (client == nullptr) {
        LOG_M("input invaild\n");
        return -1;
    }
    UniqueFd fd;
    const int result = open_and_bind(__FUNCTION__, client->info->name, &fd);
    if (result != 0) {
        return result;
    }
    LOG_D("bind client %s success\n", client->info->name);
    const MutexLock lock(client->mutex);
    client->fd = fd.release();
    return 0;
}

int dsm_client_release(dmd_client* client) {
    if (client != nullptr) {
        LOG_M("client %s release called.\n", client->info->name);
    }
    return 0;
}

ssize_t dsm_read_pending(dmd_client* client, char* buffer) {
    const int fd = client->fd;
    const ssize_t got = repeat_interrupted([&] { return read(fd, buffer, client->buffer_size); });
    if (got > 0) {
        ++client->texts_read;
    }
    return got;
}

int dsm_clear_error(dmd_client* client, int /*argument*/) {
    if (client == nullptr) {
        LOG_M("dmd client is NULL pointer\n");
        return -1;
    }
    // One byte more than the driver fills ends the text.
    const auto buffer = allocate_zeroed(size_t{client->buffer_size} + 1);
    if (buffer == nullptr) {
        LOG_M("dmd dump buff malloc failed\n");
        return -1;
    }
    {
        const MutexLock lock(client->mutex);
        dsm_read_pending(client, buffer.get());
        LOG_D("[BUFFER CONTENTS]:\n%s\n", buffer.get());
    }
    LOG_M("%s finish clear\n", client->info->name);
    return 0;
}
