// Reading the files of a running phone through its root.
#include "emulator/phone_view.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "emulator/log_keeper.h"
#include "emulator/phone.h"

namespace phone {

namespace {

namespace fs = std::filesystem;

constexpr char DAEMON[] = "dmd";

}  // namespace

std::string root_of_phone(const std::string& socket_name) {
    return "/proc/" + std::to_string(first_process_of(socket_name)) + "/root";
}

LogReader::LogReader(const std::string& root)
    : path_(root + LOG_PATH), file_(open(path_.c_str(), O_RDONLY | O_CLOEXEC)) {}

std::string LogReader::read_more() {
    std::string text;
    char piece[65536];
    for (;;) {
        ssize_t got = 0;
        while ((got = read(file_.get(), piece, sizeof piece)) > 0) {
            (is_copy_ ? copied_ : text).append(piece, static_cast<size_t>(got));
        }
        const size_t own = copied_.find(LOG_GOES_ON);
        if (is_copy_ && own != std::string::npos) {
            text += copied_.substr(own + strlen(LOG_GOES_ON));
            copied_.clear();
            is_copy_ = false;
        }
        if (next_.valid()) {
            // A full log was renamed before the next one was there, and is now read to its end.
            file_ = std::move(next_);
            is_copy_ = true;
            continue;
        }
        next_.reset(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
        struct stat before = {};
        struct stat now = {};
        if (fstat(next_.get(), &now) != 0 ||
            (fstat(file_.get(), &before) == 0 && before.st_ino == now.st_ino)) {
            next_.reset();
            return text;
        }
    }
}

std::map<std::string, FileState> reports_in(const std::string& root) {
    std::map<std::string, FileState> reports;
    std::error_code missing;
    for (const fs::directory_entry& entry : fs::directory_iterator(root + PHONE_LOG_DIR, missing)) {
        const std::string name = entry.path().filename();
        struct stat status = {};
        if ((name.rfind("dmd_record_", 0) == 0 || name.rfind("dmd_dump_", 0) == 0) &&
            stat(entry.path().c_str(), &status) == 0) {
            reports[name] = {status.st_size, {status.st_mtim.tv_sec, status.st_mtim.tv_nsec}};
        }
    }
    return reports;
}

bool has_daemon(const std::string& root) {
    std::error_code gone;
    for (const fs::directory_entry& entry : fs::directory_iterator(root + "/.phone/proc", gone)) {
        std::string name;
        std::getline(std::ifstream(entry.path() / "comm"), name);
        if (name == DAEMON) {
            return true;
        }
    }
    return false;
}

}  // namespace phone
