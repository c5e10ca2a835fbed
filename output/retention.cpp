// The retention pass.
#include "output/retention.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "output/output_dir.h"
#include "output/shell_command.h"
#include "platform/file_time.h"
#include "platform/log.h"
#include "platform/mutex.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

constexpr char OPERATION[] = "check_compress_file";

// The ".gz" dump archives may hold this many bytes together; deletion starts above.
constexpr unsigned long long TOTAL_SIZE_LIMIT_BYTES = 10 * 1024 * 1024;

// Characters of an archive's name that are read back after "dmd_dump_": up to ".tar" or ".txt" for a number
// of five digits.
constexpr size_t STEM_LENGTH = 16;

constexpr char DUMP_PREFIX[] = "dmd_dump_";
constexpr size_t PREFIX_LENGTH = sizeof DUMP_PREFIX - 1;
constexpr char ARCHIVE_ENDING[] = ".gz";

// Room for an archive's name: prefix, stem, ending and a terminator.
constexpr size_t ARCHIVE_NAME_SIZE = PREFIX_LENGTH + STEM_LENGTH + sizeof ARCHIVE_ENDING;

// What one walk over the dump archives finds.
struct archive_survey {
    const file_time now = current_file_time();
    unsigned long long total_bytes = 0;
    char oldest_archive[ARCHIVE_NAME_SIZE] = "";  // empty before the first one
    file_time oldest_time = {};
};

// The paths that are reserved: a dump in progress, or a leftover that is being removed. Two at most, one
// under the output lock and one under the compress lock; empty when free.
Mutex names_lock;
Condition name_released;
char names_in_use[2][PATH_SIZE] GUARDED_BY(names_lock) = {};

// Reserves a path until release_name. While another thread has it, waits, or returns null.
char* take_name(const char* path, bool wait) {
    const MutexLock lock(names_lock);
    for (;;) {
        char* place = nullptr;
        bool in_use = false;
        for (char(&name)[PATH_SIZE] : names_in_use) {
            place = name[0] == '\0' ? name : place;
            in_use |= strcmp(name, path) == 0;
        }
        if (place != nullptr && !in_use) {
            copy_text(place, PATH_SIZE, path);
            return place;
        }
        if (!wait) {
            return nullptr;
        }
        name_released.wait(names_lock);
    }
}

void release_name(char* name) {
    const MutexLock lock(names_lock);
    name[0] = '\0';
    name_released.broadcast();
}

const char* path_of(const char* entry, char (&path)[PATH_SIZE]) {
    format_text(path, sizeof path, "%s/%s", DMD_LOG_DIR, entry);
    return path;
}

// Removes a file that gzip left uncompressed, unless it is a dump in progress.
void remove_leftover(const char* entry) {
    char path[PATH_SIZE];
    char* const name = take_name(path_of(entry, path), false);
    if (name == nullptr) {
        return;
    }
    struct stat status;
    // What is no file would cost a command at every report.
    if (lstat(path, &status) == 0 && S_ISREG(status.st_mode)) {
        remove_by_command(path);
    }
    release_name(name);
}

// Takes one entry of the output directory, which is open as `dir`, into the survey. Removes it if it is a
// leftover.
void survey_entry(int dir, const char* entry, archive_survey* survey) {
    if (strncmp(entry, DUMP_PREFIX, PREFIX_LENGTH) != 0 || entry[PREFIX_LENGTH] == '\0') {
        return;
    }
    // No dump has such a name, and a shell must not get it.
    if (!is_plain_name(entry)) {
        LOG_M_AS(OPERATION, "leave %s alone, not a name of this daemon\n", entry);
        return;
    }
    // A leftover is all stem, and the daemon's stems have this length. A leftover beside its archive has an
    // entry of its own.
    char archive[ARCHIVE_NAME_SIZE];
    const size_t length = copy_text(archive, PREFIX_LENGTH + STEM_LENGTH + 1, entry);
    if (length == PREFIX_LENGTH + STEM_LENGTH && entry[length] == '\0') {
        remove_leftover(entry);
    }
    copy_text(archive + length, sizeof archive - length, ARCHIVE_ENDING);
    char path[PATH_SIZE];
    struct stat status;
    if (fstatat(dir, archive, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        LOG_M_AS(OPERATION, "stat %s error\n", path_of(archive, path));
        return;
    }
    // What `rm` cannot remove would stay the oldest for ever.
    if (!S_ISREG(status.st_mode)) {
        return;
    }
    file_time time = modified_time(status);
    // An archive from the future is dated back, so that those made from now on are younger.
    if (is_later(time, survey->now)) {
        time = {survey->now.seconds - 1, 0};
        set_modified_time(path_of(archive, path), time);
    }
    survey->total_bytes += static_cast<unsigned long long>(status.st_size);
    LOG_D_AS(OPERATION, "dump file - %s, file size %d, time %lu, del time %lu\n", path_of(archive, path),
             static_cast<int>(status.st_size), time.seconds, survey->oldest_time.seconds);
    if (survey->oldest_archive[0] != '\0') {
        if (!is_later(survey->oldest_time, time)) {
            return;
        }
        LOG_D_AS(OPERATION, "the older dump %s, time %lu\n", entry, time.seconds);
    }
    copy_text(survey->oldest_archive, archive);
    survey->oldest_time = time;
}

}  // namespace

DumpInProgress::DumpInProgress(const char* path) : name_(take_name(path, true)) {}

DumpInProgress::~DumpInProgress() {
    release_name(name_);
}

int check_compress_file() {
    archive_survey survey;
    {
        const UniqueDir dir(opendir(DMD_LOG_DIR));
        if (dir == nullptr) {
            LOG_M("unable to open %s -%s\n", DMD_LOG_DIR, strerror(errno));
            return -1;
        }
        while (const dirent* const entry = readdir(dir.get())) {
            survey_entry(dirfd(dir.get()), entry->d_name, &survey);
        }
    }
    if (survey.total_bytes <= TOTAL_SIZE_LIMIT_BYTES) {
        LOG_D("no file need to delete, total size %lu\n", static_cast<unsigned long>(survey.total_bytes));
        return 0;
    }
    char path[PATH_SIZE];
    const int result = remove_by_command(path_of(survey.oldest_archive, path));
    LOG_M("delete %s, result %d\n", path, result);
    return result;
}
