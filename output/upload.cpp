// The upload description and the upload request.
#include "output/upload.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "output/output_dir.h"
#include "output/shell_command.h"
#include "platform/log.h"
#include "platform/mutex.h"
#include "platform/owned.h"
#include "platform/plain_file.h"
#include "platform/text.h"

namespace {

constexpr char DESCRIPTION_PATH[] = DMD_LOG_DIR "/apr_info.txt";
constexpr mode_t DESCRIPTION_MODE = 0660;
constexpr size_t DESCRIPTION_SIZE = 256;  // bytes; what does not fit is cut off

// The platform's exception log takes a tag of at most 15 characters.
constexpr size_t TAG_SIZE = 16;

// Keeps two uploads, which come under two locks, from mixing their lines in apr_info.txt.
Mutex description_lock;

}  // namespace

bool write_apr_upload_info(const dmd_error_info* info) {
    const MutexLock lock(description_lock);
    umask(0);  // for the rest of the daemon's life: its files get exactly the modes given at creation
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_TRUNC;
    const UniqueFd file = clear_place(DESCRIPTION_PATH)
                              ? open_plain_file(DESCRIPTION_PATH, FLAGS, DESCRIPTION_MODE)
                              : UniqueFd();
    if (!file.valid()) {
        LOG_M("can't open the file %s.error:%s.", DESCRIPTION_PATH, strerror(errno));
        return false;
    }
    char text[DESCRIPTION_SIZE];
    const size_t length =
        format_text(text, sizeof text, "device_name\t%s\nerror_no\t%5d\nIC_name\t%.4s\nmodule_name\t%.4s\n",
                    info->device_name, info->error_no, info->ic_name, info->module_name);
    const ssize_t written = write(file.get(), text, length);
    sync_file(file.get(), DESCRIPTION_PATH);
    return written > 0;
}

void dmd_file_upload(const char* file_path, const dmd_error_info* info) {
    if (file_path == nullptr || info == nullptr) {
        LOG_M("invaild input value\n");
        return;
    }
    const tm when = local_time(info->time);
    if (!write_apr_upload_info(info)) {
        LOG_M("apr info file write failed!");
        return;
    }
    char tag[TAG_SIZE];
    if (format_text(tag, sizeof tag, "DMD-%s", info->device_name) == 0) {
        LOG_M("tag write failed!");
        return;
    }
    // The name is a driver's text, and the service that takes the request may give it to a shell.
    char word[TAG_SIZE];
    copy_text(word, tag);
    make_plain_name(word);
    char command[COMMAND_SIZE];
    format_text(command, sizeof command, "archive -i %s -d %s ", file_path, DESCRIPTION_PATH);
    append_text(command, sizeof command, "-o %04d%02d%02d%02d%02d%02d_%s ", when.tm_year + 1900,
                when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec, word);
    append_text(command, sizeof command, "-z zip");
    LOG_M("tag:%s, cmd_line:%s.", tag, command);
    if (__android_log_exception_write(tag, 0, "command", command) < 0) {
        LOG_M("the upload of %s could not be filed\n", file_path);
    }
}
