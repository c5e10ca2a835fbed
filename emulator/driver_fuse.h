// The devices as files: programs of the phone reach them through a FUSE file system that holds one file for
// each device of the table below.
#pragma once

#include "emulator/driver.h"

struct fuse_session;

namespace phone {

// One device that the driver server serves: its file in the file system of the server, and where the phone
// has it. An input device has the name of its file.
struct Device {
    const char* file;
    const char* path;
    bool is_link;  // a link to the file, so that a test can remove and rename it; otherwise the file itself
};

constexpr Device DEVICES[] = {
    {"dsm", "/dev/dsm", false},
    {"event0", "/dev/input/event0", true},
    {"event1", "/dev/input/event1", true},
    {"event2", "/dev/input/event2", true},
};

// Starts to serve `driver` on `fuse_fd`, the descriptor of an already mounted FUSE file system. Both must
// outlive the session. Throws Refusal.
fuse_session* start_driver_session(Driver* driver, int fuse_fd);

// Serves one request, if one is there. False when the file system is no more.
bool serve_driver_request(fuse_session* session);

}  // namespace phone
