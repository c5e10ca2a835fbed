// One numbered folder for each memory image.
#include "emulator/memory_image.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "emulator/files.h"
#include "emulator/refusal.h"

namespace phone {

namespace {

constexpr char DUMPS[] = "/data/ruvo_logs/memorydump";
// Seconds between the making of a dump's folder and its last file.
constexpr time_t DUMP_TIME_S = 3;

// Makes a folder that was not there, and returns its path.
std::string make_dump_folder() {
    make_folder(DUMPS);
    for (unsigned number = 1;; ++number) {
        char path[sizeof DUMPS + 16];
        snprintf(path, sizeof path, "%s/%06u", DUMPS, number);
        if (mkdir(path, 0755) == 0) {
            return path;
        }
        if (errno != EEXIST) {
            throw refusal_errno(std::string("cannot make the folder ") + path);
        }
    }
}

void set_age(const std::string& path, time_t seconds) {
    const timespec time = {::time(nullptr) - seconds, 0};
    const timespec times[2] = {time, time};
    if (utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
        throw refusal_errno("cannot set the time of " + path);
    }
}

}  // namespace

void write_memory_image(const std::string& image) {
    const std::string folder = make_dump_folder();
    write_file(folder + "/rdr.bin", image, 0644);
    // Here it takes no time. A phone's folder is newer than those above it when its last file is there.
    for (const char* above : {"/data/ruvo_logs", DUMPS}) {
        set_age(above, DUMP_TIME_S);
    }
}

}  // namespace phone
