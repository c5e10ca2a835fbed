// Collecting what the audio DSP, the audio codec and the media services know.
#include "actions/audio_actions.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "actions/audio_files.h"
#include "actions/memory_dump.h"
#include "clients/generic_dump.h"
#include "daemon/product_version.h"
#include "output/output_dir.h"
#include "output/record.h"
#include "output/shell_command.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/plain_file.h"
#include "platform/text.h"

namespace {

// Sizes in bytes, terminators included.
constexpr size_t DIRECTORY_TEXT_SIZE = 150;
constexpr size_t PID_SIZE = 40;
constexpr size_t PROC_PATH_SIZE = 50;
constexpr size_t STATUS_LINE_SIZE = 1023;
constexpr size_t DEBUGGERD_COMMAND_SIZE = 60;

// Whether an operation that only produces files has its arguments and runs on a debug build.
bool is_wanted(const char* operation, const dmd_client* client, const char* RT_switch) {
    if (client == nullptr || RT_switch == nullptr) {
        LOG_M_AS(operation, "dmd client or RT_switch is NULL pointer\n");
        return false;
    }
    return identify_product_version() != 1;
}

// Not every file system tells the type with the name.
bool is_directory(DIR* stream, const dirent& entry) {
    struct stat status;
    return entry.d_type == DT_DIR ||
           (entry.d_type == DT_UNKNOWN &&
            fstatat(dirfd(stream), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(status.st_mode));
}

bool is_subdirectory(DIR* stream, const dirent& entry) {
    return strcmp(entry.d_name, ".") != 0 && strcmp(entry.d_name, "..") != 0 && is_directory(stream, entry);
}

// Whether the process of that entry of /proc is named "mediaserver".
bool is_mediaserver(const char* number) {
    char path[PROC_PATH_SIZE];
    format_text(path, sizeof path, "/proc/%s/status", number);
    const UniqueFd status(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    char line[STATUS_LINE_SIZE] = {};
    if (!status.valid() || read(status.get(), line, sizeof line - 1) <= 0) {
        return false;
    }
    line[strcspn(line, "\n")] = '\0';
    char process_name[52];
    return sscanf(line, "%*s %51s", process_name) == 1 && strcmp(process_name, "mediaserver") == 0;
}

// Waits for the images, then looks for the last subdirectory of `base`, in the order of the directory, that
// holds a readable file of that name. Fills `found` with its path and a final "/", or with the empty text.
void find_dump_file_dir(char (&found)[DIRECTORY_TEXT_SIZE], const char* base, const char* file_name) {
    found[0] = '\0';
    sleep(AUDIO_IMAGE_WAIT_SECONDS);
    const UniqueDir stream = open_plain_directory(base);
    if (stream == nullptr) {
        return;
    }
    while (const dirent* const entry = readdir(stream.get())) {
        if (!is_subdirectory(stream.get(), *entry)) {
            continue;
        }
        char path[PATH_MAX];
        const size_t length = format_text(path, sizeof path, "%s/%s/%s", base, entry->d_name, file_name);
        if (!open_plain_file(path, O_RDONLY).valid()) {
            continue;
        }
        if (length >= sizeof found || strpbrk(entry->d_name, WORD_SEPARATORS) != nullptr) {
            LOG_M("leave %s alone, a list of files cannot hold it\n", path);
            continue;
        }
        format_text(found, sizeof found, "%s/%s/", base, entry->d_name);
    }
}

// Fills `pid` with the number of the last process in /proc that is named "mediaserver", or with the empty
// text.
void get_mediaserver_pid(char (&pid)[PID_SIZE]) {
    pid[0] = '\0';
    const UniqueDir stream(opendir("/proc"));
    if (stream == nullptr) {
        return;
    }
    while (const dirent* const entry = readdir(stream.get())) {
        // Processes are the entries that are numbers; anything else does not belong in a command either.
        if (strspn(entry->d_name, "0123456789") == strlen(entry->d_name) &&
            is_subdirectory(stream.get(), *entry) && is_mediaserver(entry->d_name)) {
            copy_text(pid, entry->d_name);
        }
    }
}

void list_soc_hifi_files(char* list, size_t size) {
    char images[DIRECTORY_TEXT_SIZE];
    char log[DIRECTORY_TEXT_SIZE];
    find_dump_file_dir(images, MEMORY_DUMP_DIR, "hifi3.bin");
    find_dump_file_dir(log, HIFI_LOG_DIR, "hifi.log");
    format_text(list, size, "%shifi3.bin %shifi3_ocram.bin %shifi3_tcm.bin %shifi.log", images, images,
                images, log);
}

void list_codec_hifi_files(char* list, size_t size) {
    char images[DIRECTORY_TEXT_SIZE];
    find_dump_file_dir(images, MEMORY_DUMP_DIR, "zc8830_reg.bin");
    format_text(list, size, "%szc8830_reg.bin %szc8830_ocram.bin %szc8830_tcm.bin %s", images, images, images,
                RESET_FILES);
}

void list_audio_files(char* list, size_t size) {
    char log[DIRECTORY_TEXT_SIZE];
    find_dump_file_dir(log, HIFI_LOG_DIR, "hifi.log");
    format_text(list, size, "%shifi.log %s", log, CODEC_DUMP " " MEDIA_FILES " " RESET_FILES);
}

// Runs a command that writes the file at `path`.
void run_into(const char* path, const char* command) {
    if (clear_place(path)) {
        run_command(command);
    }
}

void remove_codec_dump() {
    run_command("rm " CODEC_DUMP);
}

void remove_audio_files() {
    remove_codec_dump();
    run_command("rm " AUDIO_POLICY_LOG);
    run_command("rm " AUDIO_FLINGER_LOG);
    run_command("rm " AUDIO_LOG);
    run_command("rm " MEDIA_PLAYER_LOG);
    run_command("rm " MEDIA_DUMP);
}

}  // namespace

int codec_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    if (is_wanted(__FUNCTION__, client, RT_switch)) {
        run_into(CODEC_DUMP, "cat /sys/kernel/debug/zc8830/rh > " CODEC_DUMP);
        LOG_D("codec_dump on error_no %d.\n", error_no);
    }
    return 0;
}

int hifi_force_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    if (is_wanted(__FUNCTION__, client, RT_switch)) {
        // Its output goes where the daemon's goes. Nothing keeps it.
        run_command("cat /proc/hifidebug/dspdumplog");
        LOG_D("hifi_force_dump on error_no %d.\n", error_no);
    }
    return 0;
}

int media_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    if (is_wanted(__FUNCTION__, client, RT_switch)) {
        run_into(AUDIO_POLICY_LOG, "dumpsys media.audio_policy > " AUDIO_POLICY_LOG);
        run_into(AUDIO_FLINGER_LOG, "dumpsys media.audio_flinger > " AUDIO_FLINGER_LOG);
        run_into(AUDIO_LOG, "dumpsys audio > " AUDIO_LOG);
        run_into(MEDIA_PLAYER_LOG, "dumpsys media.player > " MEDIA_PLAYER_LOG);
        char pid[PID_SIZE];
        get_mediaserver_pid(pid);
        char command[DEBUGGERD_COMMAND_SIZE];
        format_text(command, sizeof command, "debuggerd -b %s > " MEDIA_DUMP, pid);
        run_into(MEDIA_DUMP, command);
        LOG_D("media_dump on error_no %d.\n", error_no);
    }
    return 0;
}

int audio_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_FULL,
                                 {nullptr, list_audio_files, remove_audio_files});
}

int soc_hifi_reset_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_FULL,
                                 {nullptr, list_soc_hifi_files, nullptr});
}

int codec_hifi_reset_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, nullptr, DMD_OUTPUT_FULL,
                                 {nullptr, list_codec_hifi_files, nullptr});
}

int maxim_smartpa_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    return log_collection_action(__FUNCTION__, client, error_no, RT_switch, CODEC_DUMP " ", DMD_OUTPUT_FULL,
                                 {codec_dump_error, nullptr, remove_codec_dump});
}
