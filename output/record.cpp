// Writing one bug report.
#include "output/record.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "output/dump_archive.h"
#include "output/error_history.h"
#include "output/output_dir.h"
#include "output/record_file.h"
#include "output/retention.h"
#include "output/shell_command.h"
#include "output/upload.h"
#include "platform/io.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

constexpr char OPERATION[] = "dmd_direct_output";

constexpr char COMMERCIAL_RECORD[] = DMD_LOG_DIR "/dmd_commercial_record.txt";

// A report of the same error number within this many seconds of the last recorded one is not recorded again.
constexpr int64_t COMMERCIAL_REPEAT_SECONDS = 86400;

#define ANDROID_LOGS "/data/android_logs/"

// The logs that go with every full report.
constexpr char ANDROID_LOG_FILES[] =
    " " ANDROID_LOGS "kmsgcat-log " ANDROID_LOGS "kmsgcat-log.1 " ANDROID_LOGS "applogcat-log.1 " ANDROID_LOGS
    "applogcat-log " ANDROID_LOGS "wakelocks-log.1 " ANDROID_LOGS "wakelocks-log " ANDROID_LOGS
    "rillogcat-log.1 " ANDROID_LOGS "rillogcat-log";

// Whether the once-a-day rule lets the report into the commercial record. If so, notes it in the history.
bool pass_daily_rule(const dmd_error_info* info) REQUIRES(output_lock) {
    const dmd_error_history_info_node* const last = find_error_history_info(info);
    if (last == nullptr) {
        register_error_history_info(info);
        return true;
    }
    if (int64_t{info->time} - last->time < COMMERCIAL_REPEAT_SECONDS) {
        return false;
    }
    update_error_history_info(info);
    return true;
}

// Writes the report alone into the commercial record, announces it, and removes it again.
void write_commercial_record(const void* buf, int len, const dmd_error_info* info, int mode)
    REQUIRES(output_lock) {
    if (!pass_daily_rule(info)) {
        return;
    }
    UniqueFd file(open_output_file(COMMERCIAL_RECORD, O_WRONLY | O_CREAT | O_TRUNC));
    if (!file.valid()) {
        LOG_M_AS(OPERATION, "open upload file failed! strerr:%s.\n", strerror(errno));
        return;
    }
    if (bug_head_write(file.get(), info, static_cast<unsigned int>(mode) | HEAD_COMMERCIAL_RECORD,
                       COMMERCIAL_RECORD) < 0 ||
        write_fully(file.get(), buf, len) != len || file.reset() != 0) {
        return;
    }
    dmd_file_upload(COMMERCIAL_RECORD, info);
    remove_by_command(COMMERCIAL_RECORD);
}

// Packs the record file and what the mode adds into a compressed dump archive and announces it.
void archive_report(const dmd_error_info* info, const char* extra_files, int mode) REQUIRES(output_lock) {
    char path[PATH_SIZE];
    format_dump_stem(path, sizeof path, *info);
    append_text(path, sizeof path, ".tar");
    const DumpInProgress in_progress(path);

    char command[COMMAND_SIZE];
    format_text(command, sizeof command, "dmd_tar -cf %s %16s", path, record.path);
    if (mode == DMD_OUTPUT_FULL) {
        append_text(command, sizeof command, "%s", ANDROID_LOG_FILES);
        if (extra_files != nullptr) {
            append_paths(OPERATION, command, extra_files);
        }
    }
    LOG_M_AS(OPERATION, "dmd_tar_cmd:%s.", command);
    if (run_archive_command(OPERATION, command) < 0) {
        return;
    }
    gzip_file(path, info->time);
    append_text(path, sizeof path, ".gz");
    finish_dump(OPERATION, path);
    dmd_file_upload(path, info);
}

}  // namespace

int dmd_direct_output(const void* buf, int len, dmd_error_info* info, const char* extra_files, int mode) {
    if (buf == nullptr || info == nullptr) {
        LOG_M("invalid pointer\n");
        return -1;
    }
    const MutexLock lock(output_lock);
    int result = check_compress_file();
    if (!prepare_record_file()) {
        return 0;
    }
    LOG_D("output to file: %s, prepare write %dbytes\n", record.path, len);
    if (mode == DMD_OUTPUT_SHORT || mode == DMD_OUTPUT_FULL) {
        result = bug_head_write(record.fd.get(), info, static_cast<unsigned int>(mode) | HEAD_ROLLING_RECORD,
                                record.path);
    }
    if (result < 0) {
        LOG_M("bug head write failed\n");
        return 0;
    }
    // The archive and the upload still carry what was written of it.
    write_part(record.fd.get(), record.path, "the report", buf, len);
    date_other_records_back();
    sync_file(record.fd.get(), record.path);

    if (record.is_commercial_version == 1) {
        write_commercial_record(buf, len, info, mode);
    } else if (mode == DMD_OUTPUT_SHORT) {
        dmd_file_upload(record.path, info);
    } else {
        archive_report(info, extra_files, mode);
    }
    return 0;
}
