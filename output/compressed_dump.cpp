// Making a standalone dump.
#include "output/compressed_dump.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "daemon/product_version.h"
#include "output/dump_archive.h"
#include "output/output_dir.h"
#include "output/retention.h"
#include "output/upload.h"
#include "platform/log.h"
#include "platform/mutex.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

constexpr char OPERATION[] = "dmd_compress_output";

// Held for the whole of dmd_compress_output. The record files have a lock of their own.
Mutex compress_lock;

// Stores the bytes as they are. False, after a message, when the file could not be opened.
bool write_dump(const char* path, const void* buf, int len) {
    const UniqueFd file(open_output_file(path, O_WRONLY | O_CREAT | O_TRUNC));
    if (!file.valid()) {
        return false;
    }
    LOG_D_AS(OPERATION, "output to file: %s, size: %d\n", path, len);
    // What was written of it is worth keeping.
    write_part(file.get(), path, "the dump", buf, len);
    sync_file(file.get(), path);
    return true;
}

}  // namespace

int dmd_compress_output(const void* buf, int len, dmd_error_info* info, int type) {
    if (buf == nullptr || info == nullptr) {
        LOG_M("invalid pointer\n");
        return -1;
    }
    const int is_commercial_version = identify_product_version();
    const MutexLock lock(compress_lock);
    int result = check_compress_file();
    if (is_commercial_version == 1) {
        LOG_M("Ignored any appended dump action on commercial version product!\n");
        return result;
    }
    if (access(DMD_LOG_DIR, F_OK) != 0) {
        if (mkdir_parent() != 0) {
            LOG_M("unable to create compress dir\n");
        } else {
            LOG_D("create compress dir success\n");
        }
    }
    if (type != DUMP_PATHS && type != DUMP_BYTES) {
        LOG_M("unkown compress type.");
        return result;
    }
    char path[PATH_SIZE];
    format_dump_stem(path, sizeof path, *info);
    append_text(path, sizeof path, type == DUMP_PATHS ? ".tar" : ".txt");
    const DumpInProgress in_progress(path);

    char command[COMMAND_SIZE];
    format_text(command, sizeof command, "dmd_tar -cf %s", path);
    if (type == DUMP_PATHS) {
        append_paths(OPERATION, command, static_cast<const char*>(buf));
        result = run_archive_command(OPERATION, command);
        if (result < 0) {
            return result;
        }
    } else if (!write_dump(path, buf, len)) {
        return result;
    }
    // Splitting an archive command has ended its text at the first blank.
    LOG_M("dmd_tar_cmd:%s.\n", command);
    if (gzip_file(path, info->time) != 0) {
        LOG_M("compress error  - %s\n", strerror(errno));
    }
    append_text(path, sizeof path, ".gz");
    LOG_D("new compress file - %s", path);
    finish_dump(OPERATION, path);
    dmd_file_upload(path, info);
    return result;
}
