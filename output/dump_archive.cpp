// Dump archives.
#include "output/dump_archive.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "output/upload.h"
#include "platform/log.h"
#include "platform/text.h"
#include "tar/tar_main.h"

namespace {

constexpr mode_t DUMP_MODE = 0644;

}  // namespace

void format_dump_stem(char* path, size_t size, const dmd_error_info& info) {
    const tm when = local_time(info.time);
    format_text(path, size, "%s/dmd_dump_%05d_%02d%02d%02d", DMD_LOG_DIR, info.error_no, when.tm_hour,
                when.tm_min, when.tm_sec);
}

void append_paths(const char* name, char (&command)[COMMAND_SIZE], const char* paths) {
    const size_t used = strlen(command);
    size_t kept = append_text(command, sizeof command, " %s", paths) - used;
    if (kept == strlen(paths) + 1) {
        return;
    }
    // Back to where the last whole path ends; the blank before the list is the last such place.
    while (kept > 0 && strchr(WORD_SEPARATORS, paths[kept - 1]) == nullptr) {
        --kept;
    }
    command[used + kept] = '\0';
    const char* const left_out = paths + kept + strspn(paths + kept, WORD_SEPARATORS);
    if (*left_out != '\0') {
        LOG_M_AS(name, "no room in the archive command for %s\n", left_out);
    }
}

int run_archive_command(const char* name, char* command) {
    int argc = 0;
    char* argv[MAX_COMMAND_WORDS + 1] = {};
    const int split = parse_command(command, &argc, argv);
    if (split != 0) {
        LOG_M_AS(name, "invalid dmd tar compress cmd.\n");
        return split;
    }
    const int result = dmd_tar_main(argc, argv);
    if (result < 0) {
        LOG_M_AS(name, "dmd tar file failed.");
    }
    return result;
}

int compress_dump(char (&path)[PATH_SIZE]) {
    char command[COMMAND_SIZE];
    format_text(command, sizeof command, "gzip %25s", path);
    const int status = secure_system(command);
    // A gzip that a signal has ended, or whose shell says so, may leave a part of its output. It must not
    // pass for the dump; the whole one is there as long as the file at `path` is.
    const bool ended = status > 0 && (WIFSIGNALED(status) || WEXITSTATUS(status) > 128);
    const bool is_part = ended && access(path, F_OK) == 0;
    append_text(path, sizeof path, ".gz");
    if (is_part) {
        unlink(path);
    }
    return status;
}

void publish_dump(const char* name, const char* gz_path, const dmd_error_info* info) {
    if (chmod(gz_path, DUMP_MODE) != 0) {
        LOG_M_AS(name, "chmod error  - %s\n", strerror(errno));
    }
    dmd_file_upload(gz_path, info);
}
