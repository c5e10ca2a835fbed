// A phone: what its boot needs to know, and the steps of it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/owned.h"

namespace phone {

// Bytes of /data when no folder of the desk is bound there.
constexpr uint64_t DATA_SIZE_DEFAULT = 512u * 1024 * 1024;
// Where the phone shows the folder of `phone` itself, so that no phone depends on its place on the desk.
constexpr char BUILD_DIR[] = "/.phone/build";

// Paths are absolute paths of the desk without symbolic links.
struct PhoneOptions {
    std::string socket_name;  // of the control socket
    bool commercial = false;
    std::string config;    // content of the daemon's configuration file
    std::string data_dir;  // bound as /data; empty: a fresh, empty one of data_size bytes
    uint64_t data_size = DATA_SIZE_DEFAULT;
    std::string build_dir;           // the folder of `phone` itself, shown read-only at BUILD_DIR
    std::vector<std::string> binds;  // folders that the phone sees, read-only, at their own place; sorted
    std::vector<std::string> command;
    // The command is the daemon: its standard error is kept as the phone's log, init starts it again when it
    // was killed, and at the end it is told how many reports are lost with the phone.
    bool is_boot = false;
    std::string banner;  // printed on standard output once the daemon has started
};

// Boots a phone and runs the command in it. Returns the command's exit status, 128 plus the signal that ended
// it, or STATUS_NO_PHONE after a line on standard error. Nothing of the phone is left when it returns.
int run_phone(const PhoneOptions& options);

// Runs the calling process as the first one of a phone, in namespaces of its own: starts the driver server,
// the media server and the command, and reaps whatever ends, until the command does. Returns the command's
// exit status. Throws Refusal.
int run_first_process(const PhoneOptions& options);

// Runs a command in the running phone of that socket name, with the terminal of the caller, and ends the
// calling process with the status that run_phone would return. Waits for the end of the boot. Throws Refusal.
[[noreturn]] void run_in_phone(const std::string& socket_name, const std::vector<std::string>& command);

// The first process of the running phone of that socket name, as the desk numbers it. Throws Refusal.
pid_t first_process_of(const std::string& socket_name);

// Where the phone has a program: at BUILD_DIR when the desk's `program` lies in `build_dir`, and otherwise
// where it is on the desk.
std::string place_in_phone(const std::string& build_dir, const std::string& program);

// Makes the private root and moves the calling process into it; needs a mount namespace of its own. Returns
// the descriptor of the driver's FUSE file system, which is mounted and served by nobody yet. Throws Refusal.
UniqueFd enter_private_root(const PhoneOptions& options);

// Puts the driver's devices in their place; the driver server must be serving. Throws Refusal.
void place_devices();

// Lets /proc show a process of the phone under its number, or no more.
void show_in_proc(pid_t pid);
void hide_from_proc(pid_t pid);

// Becomes the command: the environment of a phone, the standard descriptors and no others. Prints a line and
// ends with status 126 or 127 when it cannot be run.
[[noreturn]] void become_command(const std::string& socket_name, const std::vector<std::string>& command);

}  // namespace phone
