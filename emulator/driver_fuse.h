// The driver as a file: programs of the phone reach it through a FUSE file system that holds one file for
// each device of the table below.
#pragma once

#include "emulator/driver.h"

struct fuse_session;

namespace phone {

// One device that the driver server serves: its file in the file system of the server, and where the phone
// has it.
struct Device {
    const char* file;
    const char* path;
};

constexpr Device DEVICES[] = {
    {"dsm", "/dev/dsm"},
};

// Starts to serve `driver` on `fuse_fd`, the descriptor of an already mounted FUSE file system. Both must
// outlive the session. Throws Refusal.
fuse_session* start_driver_session(Driver* driver, int fuse_fd);

// Serves one request, if one is there. False when the file system is no more.
bool serve_driver_request(fuse_session* session);

}  // namespace phone
