// A client under test, and the calls that its checks make. Each call is announced before it is made.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "clients/dsm_device.h"
#include "driver_check/watched_check.h"
#include "platform/owned.h"

// A descriptor of the driver. A driver may keep a close for ever, too.
struct driver_fd {
    driver_check* check;
    UniqueFd fd;

    ~driver_fd();
};

// The descriptors that dmd binds to a client, by their use.
enum { READING, LISTENING, POLLING, DESCRIPTORS };

struct bound_client {
    driver_check* check;
    driver_fd device[DESCRIPTORS];
    UniqueBuffer buffer;  // as many bytes as dmd reads of the client

    int fd(int descriptor) const { return device[descriptor].fd.get(); }
};

// The beginning of a text, with what does not print left out.
constexpr size_t SHOWN_SIZE = 64;
struct shown_text {
    char text[SHOWN_SIZE];
};
shown_text show(const char* text, size_t length);

// What became of a call that did not succeed, as the words behind its name. It has left errno.
shown_text failure(int64_t result);

// Opens the driver. Returns whether that succeeded.
bool open_driver(driver_fd* device);

// Makes a request. Returns its result.
int ask(driver_check* check, int fd, dsm_call call, dsm_argument* argument);

// Opens the driver and binds the descriptor. Returns what the request returned, or -1 after a warning when
// the driver cannot be opened.
int open_and_bind(driver_fd* device, const char* name);

// The number that a request tells, as dmd takes it.
struct told_number {
    int number;
    char fault[128];  // of the answer, and what dmd makes of it; empty for none
};
told_number ask_number(const bound_client& client, int descriptor, dsm_call call);

bool is_readable(const bound_client& client, int descriptor);

// Reads into the client's buffer as dmd does. Returns what the read returned.
ssize_t read_text(const bound_client& client, dsm_call call);
