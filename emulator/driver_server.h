// The driver server: the process of the phone that stands where the kernel's drivers would.
#pragma once

#include <string>

namespace phone {

// An abstract, listening socket of that name. Throws Refusal, also when another phone has it.
int listen_for_control(const std::string& socket_name);

// Serves the driver on a mounted FUSE descriptor, and control requests on a listening socket, until one of
// them says that it is over. `log_dir` is what the request of that name answers.
[[noreturn]] void run_driver_server(int fuse_fd, int listen_fd, const std::string& log_dir);

}  // namespace phone
