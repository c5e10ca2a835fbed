// Folders of links to the desk's kernel entries, with those of a phone's drivers among them. The latter are
// ordinary files, which keep what is written to them.
#include "emulator/kernel_files.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "emulator/files.h"
#include "emulator/refusal.h"

namespace phone {

namespace {

// Folders where entries of the phone stand beside the desk's; the outer ones first.
constexpr const char* SHARED_FOLDERS[] = {"/sys/class", "/sys/bus", "/sys/bus/platform",
                                          "/sys/bus/platform/devices", "/sys/kernel"};

constexpr struct {
    const char* path;
    const char* content;
} FILES[] = {
    {"/proc/touchscreen/rawdata",
     "RawImage 4x8\n"
     " 3021 3018 3025 3040 3033 3029 3017 3022\n"
     " 3015 3024 3031 3052 3047 3028 3020 3019\n"
     " 3018 3022 3034 3061 3055 3031 3023 3016\n"
     " 3020 3017 3026 3043 3039 3025 3018 3021\n"},
    {"/sys/touch_screen/synaptics_debug_test",
     "DiffImage 4x8\n"
     "    1   -2    3   18   11    7   -3    0\n"
     "   -4    2    9   30   25    6   -1   -2\n"
     "   -1    0   12   39   33    9    2   -4\n"
     "    0   -3    4   21   17    3   -2    1\n"},
    {"/sys/touch_screen/synaptics_trigger_log", "0\n"},
    {"/sys/bus/platform/devices/qelvan_touch/loglevel", "0\n"},
    {"/sys/class/power_supply/USB/online", "1\n"},
    {"/sys/class/power_supply/Mains/online", "0\n"},
    {"/sys/class/timed_output/vibrator/enable", "0\n"},
    {"/sys/kernel/debug/zc8830/rh",
     "0x7000: 0x00000001\n"
     "0x7004: 0x0000a3f0\n"
     "0x7008: 0x00000000\n"
     "0x700c: 0x00001f40\n"},
    {"/proc/hifidebug/dspdumplog",
     "[hifi] dsp state: running\n"
     "[hifi] log is dumped\n"},
};

void remove_link(const std::string& path) {
    struct stat info = {};
    if (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode) && unlink(path.c_str()) != 0) {
        throw refusal_errno("cannot replace " + path);
    }
}

// Makes a folder of links out of a link to a folder of the desk. One that the desk does not have, or does not
// let its user list, is empty.
void share_folder(const std::string& folder) {
    char real[PATH_MAX] = {};
    const bool is_link = readlink(folder.c_str(), real, sizeof(real) - 1) > 0;
    remove_link(folder);
    make_folder(folder);
    if (is_link && access((std::string(real) + "/.").c_str(), R_OK | X_OK) == 0) {
        link_entries(real, folder);
    }
}

// Makes a file of the phone. A link of the desk's on the way gives way to a folder.
void make_own_file(const std::string& path, const std::string& content) {
    for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        remove_link(path.substr(0, end));
        make_folder(path.substr(0, end));
    }
    write_file(path, content, 0644);
}

}  // namespace

void link_entries(const std::string& real, const std::string& folder) {
    make_folder(folder);
    for (const std::string& name : names_in(real)) {
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            const std::string entry = "/" + name;
            make_link(real + entry, folder + entry);
        }
    }
}

void make_kernel_files() {
    for (const char* folder : SHARED_FOLDERS) {
        share_folder(folder);
    }
    for (const auto& file : FILES) {
        make_own_file(file.path, file.content);
    }
}

}  // namespace phone
