// Naming, packing and compressing a dump.
#include "output/dump_archive.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "output/shell_command.h"
#include "platform/log.h"
#include "platform/plain_file.h"
#include "platform/text.h"
#include "tar/tar_main.h"

namespace {

constexpr mode_t DUMP_MODE = 0644;
constexpr int MIN_COMMAND_WORDS = 3;
constexpr int ARCHIVE_WORD = 2;

}  // namespace

void format_dump_stem(char* path, size_t size, const dmd_error_info& info) {
    const tm when = local_time(info.time);
    format_text(path, size, "%s/dmd_dump_%05d_%02d%02d%02d", DMD_LOG_DIR, info.error_no, when.tm_hour,
                when.tm_min, when.tm_sec);
}

void append_paths(const char* operation, char (&command)[COMMAND_SIZE], const char* paths) {
    const size_t used = strlen(command);
    size_t kept = append_text(command, sizeof command, " %s", paths) - used;
    if (kept == strlen(paths) + 1) {
        return;
    }
    // Go back to the end of the last whole path, at most to the blank in front of the list.
    while (kept > 0 && strchr(WORD_SEPARATORS, paths[kept - 1]) == nullptr) {
        --kept;
    }
    command[used + kept] = '\0';
    const char* const left_out = paths + kept + strspn(paths + kept, WORD_SEPARATORS);
    if (*left_out != '\0') {
        LOG_M_AS(operation, "no room in the archive command for %s\n", left_out);
    }
}

int parse_command(char* text, int* argc, char** argv) {
    char* rest = nullptr;
    int words = 0;
    char* word = strtok_r(text, WORD_SEPARATORS, &rest);
    for (; word != nullptr && words < MAX_COMMAND_WORDS; word = strtok_r(nullptr, WORD_SEPARATORS, &rest)) {
        argv[words++] = word;
    }
    *argc = words;
    if (words < MIN_COMMAND_WORDS || word != nullptr) {
        LOG_M("invalid compress command:%s.\n", text);
        return -1;
    }
    return 0;
}

int run_archive_command(const char* operation, char* command) {
    int argc = 0;
    char* argv[MAX_COMMAND_WORDS + 1] = {};
    const int split = parse_command(command, &argc, argv);
    if (split != 0) {
        LOG_M_AS(operation, "invalid dmd tar compress cmd.\n");
        return split;
    }
    const int result = clear_place(argv[ARCHIVE_WORD]) ? dmd_tar_main(argc, argv) : -1;
    if (result < 0) {
        LOG_M_AS(operation, "dmd tar file failed.");
    }
    return result;
}

int gzip_file(const char* path, int32_t time) {
    char compressed[PATH_SIZE];
    format_text(compressed, sizeof compressed, "%s.gz", path);
    clear_place(compressed);
    struct stat status;
    if (lstat(compressed, &status) == 0 && S_ISREG(status.st_mode) &&
        static_cast<time_t>(status.st_mtime) < time) {
        // Left there, it would be announced as the new one: gzip replaces nothing.
        LOG_M("an older dump gives way: %s\n", compressed);
        unlink(compressed);
    }
    char command[COMMAND_SIZE];
    format_text(command, sizeof command, "gzip %25s", path);
    const int result = secure_system(command);
    const int reason = errno;
    if (result != 0) {
        LOG_M("%s is not compressed, status %d\n", path, result);
    }
    // A killed gzip may leave a part of its output, which must not pass for the dump. As long as the file at
    // `path` is there, that is the whole dump.
    const bool was_killed = result > 0 && (WIFSIGNALED(result) || WEXITSTATUS(result) > 128);
    if (was_killed && access(path, F_OK) == 0) {
        unlink(compressed);
    }
    errno = reason;
    return result;
}

void finish_dump(const char* operation, const char* path) {
    const UniqueFd file = clear_place(path) ? open_plain_file(path, O_RDONLY) : UniqueFd();
    if (!file.valid() || fchmod(file.get(), DUMP_MODE) != 0) {
        LOG_M_AS(operation, "chmod error  - %s\n", strerror(errno));
    }
    if (file.valid()) {
        sync_file(file.get(), path);
        sync_output_dir();
    }
}
