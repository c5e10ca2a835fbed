// How an application asks the device state monitor for a dump: connect to the stream socket
// DMD_COMMAND_SOCKET, write one struct dmd_command_message, and close, or write more. Nothing is sent back.
//
// This header stands alone and is both C (C11) and C++, so that an application can take it as it is.
#ifndef DMD_COMMAND_MESSAGE_H
#define DMD_COMMAND_MESSAGE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#define DMD_COMMAND_SOCKET "/dev/socket/dmd-recv-command"

// Values of test_switch_type. A message with any other value is refused.
#define DMD_TEST_SWITCH_ON 0
#define DMD_TEST_SWITCH_OFF 1

// One request, written in one piece: the daemon drops what comes in pieces or in another size. Numbers are in
// the machine's own byte order.
struct dmd_command_message {
    char client_name[32];       // the client to dump, as zero-terminated text (any case)
    uint32_t test_switch_type;  // the running test switch of the report
    int32_t data;               // the error number of the report
};

static_assert(offsetof(struct dmd_command_message, client_name) == 0, "the daemon reads it there");
static_assert(offsetof(struct dmd_command_message, test_switch_type) == 32, "the daemon reads it there");
static_assert(offsetof(struct dmd_command_message, data) == 36, "the daemon reads it there");
static_assert(sizeof(struct dmd_command_message) == 40, "the daemon takes no other size");

#endif
