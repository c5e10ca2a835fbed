// The driver server: the process of the phone that stands where the kernel's drivers would.
#pragma once

#include <string>

#include "platform/owned.h"

namespace phone {

// An abstract, listening socket of that name. Throws Refusal, also when another phone has it.
UniqueFd listen_for_control(const std::string& socket_name);

// What the server works with.
struct ServerOptions {
    int fuse_fd;            // a mounted FUSE descriptor
    int listen_fd;          // the control socket
    int placed_fd;          // a pipe whose other end is closed when the phone is whole
    std::string log_dir;    // what the request of that name answers
    std::string build_dir;  // likewise
};

// Serves the driver, and control requests as soon as the phone is whole, until one of them says that it is
// over.
[[noreturn]] void run_driver_server(const ServerOptions& options);

}  // namespace phone
