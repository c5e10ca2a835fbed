// Dumping the frames that the graphics side is composing.
#include "actions/display_actions.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "clients/dump_steps.h"
#include "daemon/product_version.h"
#include "output/compressed_dump.h"
#include "output/output_dir.h"
#include "output/shell_command.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/plain_file.h"
#include "platform/properties.h"
#include "platform/text.h"

namespace {

constexpr char OPERATION[] = "lcd_force_dump_error";

constexpr char FRAME_DIR[] = "/data/hwcdump";
// Set to 1 to ask for a dump; the graphics side sets it to 0 when it is done.
constexpr char ENABLE_PROPERTY[] = "debug.frame_dump_enable";

void ask_for_frames() {
    property_set(ENABLE_PROPERTY, "1");
    property_set("debug.frame_dump_cnt", "2");
    property_set("debug.composed_frame_dump_count", "2");
    if (run_command("dumpsys SurfaceFlinger") < 0) {
        LOG_M_AS(OPERATION, "system call dumpsys SurfaceFlinger failed. error:%s.", strerror(errno));
    }
}

bool frames_are_done() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(ENABLE_PROPERTY, value, "");
    return value[0] != '\0' && static_cast<int32_t>(strtoll(value, nullptr, 10)) <= 0;
}

// Looks at the property once a second. False, after a message, when the graphics side did not report in time.
bool wait_for_frames() {
    for (int attempt = 0; attempt < FRAME_WAIT_SECONDS; ++attempt) {
        if (frames_are_done()) {
            return true;
        }
        sleep(1);
        LOG_M_AS(OPERATION, "waiting for the graphics dump ...");
    }
    LOG_M_AS(OPERATION, "graphic dump timeout.");
    return false;
}

}  // namespace

int lcd_force_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    if (client == nullptr || RT_switch == nullptr) {
        LOG_M("invalid dmd client ptr or RT_switch.\n");
        return -1;
    }
    if (identify_product_version() == 1) {
        return -1;
    }
    const UniqueDir dir = open_plain_directory(FRAME_DIR);
    if (dir == nullptr) {
        LOG_M("unable to open dir: %s. error info:%s.", FRAME_DIR, strerror(errno));
        return -1;
    }
    const time_t start = time(nullptr);
    ask_for_frames();
    if (!wait_for_frames()) {
        return -1;
    }
    const time_t end = time(nullptr);

    while (const dirent* const entry = readdir(dir.get())) {
        if (strstr(entry->d_name, ".bmp") == nullptr) {
            continue;
        }
        char path[PATH_SIZE] = {};
        format_text(path, sizeof path, "%s/%s", FRAME_DIR, entry->d_name);
        struct stat status;
        if (lstat(path, &status) != 0) {
            LOG_M("get %s's information failed\n", path);
            return -1;
        }
        const auto modified = static_cast<time_t>(status.st_mtime);  // unsigned on a phone
        if (modified < start || modified > end) {
            continue;
        }
        if (!S_ISREG(status.st_mode)) {
            LOG_M("leave %s alone, not a plain file\n", path);
            continue;
        }
        LOG_M("dump graphic file:%s", path);
        const UniqueFd file = open_plain_file(path, O_RDONLY);
        if (!file.valid()) {
            LOG_M("Unable to open %s-%s\n", path, strerror(errno));
            return -1;
        }
        const auto size = static_cast<size_t>(status.st_size);
        void* frame = MAP_FAILED;
        if (status.st_size > INT_MAX) {
            errno = EFBIG;  // more than a dump can hold
        } else {
            frame = mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
        }
        if (frame == MAP_FAILED) {
            LOG_M("graphics dumped file mmap failed, %s.\n", strerror(errno));
            return -1;
        }
        dmd_error_info info = describe_standalone_dump(client, error_no, RT_switch);
        dmd_compress_output(frame, static_cast<int>(size), &info, DUMP_BYTES);
        munmap(frame, size);
    }
    return 0;
}
