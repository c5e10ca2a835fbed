// Choosing, opening and rotating the record files.
#include "output/record_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "daemon/product_version.h"
#include "platform/file_time.h"
#include "platform/log.h"
#include "platform/text.h"

record_state record;

namespace {

constexpr int64_t RECORD_SIZE_LIMIT_BYTES = 512 * 1024;
constexpr int RECORD_FILES = 4;
constexpr int RECORD_NAMES = 10;  // that are looked at when the latest file is chosen

void format_record_path(char* path, size_t size, int index) {
    format_text(path, size, "%s/dmd_record_%d.txt", DMD_LOG_DIR, index);
}

void advance_record() REQUIRES(output_lock) {
    record.index = (record.index + 1) % RECORD_FILES;
}

void open_record(int flags) REQUIRES(output_lock) {
    record.fd.reset();
    format_record_path(record.path, sizeof record.path, record.index);
    record.fd.reset(open_output_file(record.path, O_WRONLY | O_CREAT | O_APPEND | flags));
    if (record.fd.valid()) {
        sync_output_dir();  // its name may be new
    }
}

// Finds the most recently modified record file: sets record.index to its number (0 when there is none) and
// returns its size in bytes.
int64_t find_latest_record() REQUIRES(output_lock) {
    constexpr char operation[] = "find_recently_file";
    const UniqueDir dir(opendir(DMD_LOG_DIR));
    if (dir == nullptr) {
        LOG_M_AS(operation, "unable to open %s -%s\n", DMD_LOG_DIR, strerror(errno));
        return 0;
    }
    file_time latest = {};
    int64_t latest_size = 0;
    while (const dirent* const entry = readdir(dir.get())) {
        int index;
        if (sscanf(entry->d_name, "dmd_record_%1d.txt", &index) != 1) {
            continue;
        }
        char path[PATH_SIZE];
        format_record_path(path, sizeof path, index);
        struct stat status;
        if (lstat(path, &status) != 0) {
            LOG_M_AS(operation, "get %s's information failed\n", path);
            continue;
        }
        if (!S_ISREG(status.st_mode)) {
            continue;
        }
        const file_time time = modified_time(status);
        if (is_later(time, latest)) {
            LOG_D_AS(operation, "the lastest file name %s, time %lu\n", entry->d_name, time.seconds);
            record.index = index;
            latest = time;
            latest_size = status.st_size;
        } else {
            LOG_D_AS(operation, "file %s time %lu not the lastest file, lastest file index %d time %lu\n",
                     entry->d_name, time.seconds, record.index, latest.seconds);
        }
    }
    return latest_size;
}

}  // namespace

void find_recently_file() {
    record.is_commercial_version = identify_product_version();
    record.index = 0;
    if (access(DMD_LOG_DIR, F_OK) != 0) {
        if (mkdir_parent() != 0) {
            LOG_M("unable to create output dir\n");
        } else {
            LOG_D("create output dir success\n");
        }
    }
    const int64_t size = find_latest_record();
    LOG_D("the recently file index %d, files size %d.\n", record.index, static_cast<int>(size));
    if (size >= RECORD_SIZE_LIMIT_BYTES) {
        advance_record();
        open_record(O_TRUNC);
    } else {
        open_record(0);
    }
}

bool prepare_record_file() {
    constexpr char operation[] = "dmd_direct_output";
    if (!record.fd.valid()) {
        find_recently_file();
    } else {
        struct stat status;
        if (lstat(record.path, &status) != 0) {
            LOG_M_AS(operation, "get %s's information failed\n", record.path);
            record.fd.reset();
            return false;
        }
        struct stat opened;
        if (status.st_size >= RECORD_SIZE_LIMIT_BYTES) {
            advance_record();
            open_record(O_TRUNC);
            LOG_M_AS(operation, "output change to new file %s\n", record.path);
        } else if (fstat(record.fd.get(), &opened) != 0 || opened.st_ino != status.st_ino ||
                   opened.st_dev != status.st_dev) {
            // Somebody replaced the file. Reports go where people look for them: into the one with this name.
            LOG_M_AS(operation, "%s is another file now\n", record.path);
            open_record(0);
        }
    }
    if (!record.fd.valid()) {
        return false;
    }
    date_other_records_back();
    return true;
}

void date_other_records_back() {
    file_time latest = current_file_time();
    for (int behind = 1; behind < RECORD_NAMES; ++behind) {
        --latest.seconds;
        char path[PATH_SIZE];
        format_record_path(path, sizeof path, (record.index + RECORD_NAMES - behind) % RECORD_NAMES);
        struct stat status;
        if (lstat(path, &status) == 0 && S_ISREG(status.st_mode) && is_later(modified_time(status), latest)) {
            set_modified_time(path, latest);
        }
    }
}
