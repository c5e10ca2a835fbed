// The daemon's conversation with the kernel driver: its requests, binding, and reading what it hands over.
#pragma once

#include <sys/ioctl.h>
#include <sys/types.h>

#include <atomic>

#include "clients/client.h"

constexpr char DSM_DEVICE[] = "/dev/dsm";

// The argument of every request, in and out: text, zero-filled before the call.
constexpr size_t DSM_ARGUMENT_SIZE = 32;
struct dsm_argument {
    char text[DSM_ARGUMENT_SIZE + 1];  // the driver sees DSM_ARGUMENT_SIZE bytes; the last one ends the text
};

// What the driver answers. A request succeeds when its ioctl returns 0.
constexpr unsigned int DSM_IOCTL_BIND = _IOWR('x', 0xf1, char[DSM_ARGUMENT_SIZE]);             // in: name
constexpr unsigned int DSM_IOCTL_GET_STATE = _IOWR('x', 0xf2, char[DSM_ARGUMENT_SIZE]);        // out: decimal
constexpr unsigned int DSM_IOCTL_FORCE_DUMP = _IOWR('x', 0xf3, char[DSM_ARGUMENT_SIZE]);       // in: decimal
constexpr unsigned int DSM_IOCTL_GET_ERROR = _IOWR('x', 0xf4, char[DSM_ARGUMENT_SIZE]);        // out: decimal
constexpr unsigned int DSM_IOCTL_GET_DEVICE_NAME = _IOWR('x', 0xf5, char[DSM_ARGUMENT_SIZE]);  // out: text
constexpr unsigned int DSM_IOCTL_GET_MODULE_NAME = _IOWR('x', 0xf6, char[DSM_ARGUMENT_SIZE]);  // out: text
constexpr unsigned int DSM_IOCTL_GET_IC_NAME = _IOWR('x', 0xf7, char[DSM_ARGUMENT_SIZE]);      // out: text
static_assert(DSM_IOCTL_BIND == 0xc02078f1 && DSM_IOCTL_GET_STATE == 0xc02078f2 &&
                  DSM_IOCTL_FORCE_DUMP == 0xc02078f3 && DSM_IOCTL_GET_ERROR == 0xc02078f4 &&
                  DSM_IOCTL_GET_DEVICE_NAME == 0xc02078f5 && DSM_IOCTL_GET_MODULE_NAME == 0xc02078f6 &&
                  DSM_IOCTL_GET_IC_NAME == 0xc02078f7,
              "the request codes are the driver's");

// Issues a request, again when it is interrupted. Returns what ioctl returned: 0 on success.
int dsm_request(int fd, unsigned int request, dsm_argument* argument);

// A new descriptor of the caller's, bound to the client of that name (at most 32 bytes are used), or a
// negative number after a message.
int bind_client_fd(const char* name);

// Reads the client's pending error text into `buffer`, buffer_size bytes at most; the driver drops what it
// hands over. An interrupted read has handed nothing over and is repeated. Returns the bytes read; 0 or less
// when nothing was read, with errno as read left it.
ssize_t dsm_read_pending(dmd_client* client, char* buffer) REQUIRES(client->mutex);

// Descriptors that the servers have yet to bind. The command server keeps that many free.
inline std::atomic<int> descriptors_to_bind{0};

// The init operation of every row: binds the client's own descriptor. 0, or a result that is not 0 when the
// client could not be bound; no descriptor is kept then.
int dsm_client_init(dmd_client* client);

// The release operation of every row: leaves the client as it is. Always 0.
int dsm_client_release(dmd_client* client);

// The clear operation of every row: reads the pending error text and throws it away. 0, or -1.
int dsm_clear_error(dmd_client* client, int argument);
