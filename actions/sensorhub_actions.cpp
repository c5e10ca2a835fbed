// Saving the memory image of the sensor hub.
#include "actions/sensorhub_actions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "actions/memory_dump.h"
#include "clients/dsm_device.h"
#include "clients/dump_steps.h"
#include "daemon/product_version.h"
#include "output/compressed_dump.h"
#include "output/output_dir.h"
#include "output/record.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/plain_file.h"
#include "platform/text.h"

namespace {

constexpr char OPERATION[] = "sensorhub_dump_error";

// Fills `image_path` with the path of the image in the newest entry of the directory, the first of those with
// the same time; "." and ".." are entries too. False, after a message, when the directory could not be
// opened.
bool find_newest_image(char (&image_path)[PATH_SIZE]) {
    const UniqueDir dir = open_plain_directory(MEMORY_DUMP_DIR);
    if (dir == nullptr) {
        LOG_M_AS(OPERATION, "unable to open %s -%s\n", MEMORY_DUMP_DIR, strerror(errno));
        return false;
    }
    unsigned long newest = 0;
    while (const dirent* const entry = readdir(dir.get())) {
        char path[PATH_SIZE] = {};
        format_text(path, sizeof path, "%s/%s", MEMORY_DUMP_DIR, entry->d_name);
        struct stat status;
        // A link could lead anywhere.
        if (lstat(path, &status) != 0 || S_ISLNK(status.st_mode)) {
            LOG_M_AS(OPERATION, "get %s's information failed\n", path);
            continue;
        }
        const auto time = static_cast<unsigned long>(status.st_mtime);
        if (time > newest) {
            LOG_D_AS(OPERATION, "the lastest file name %s, time %lu\n", entry->d_name, time);
            format_text(image_path, sizeof image_path, "%s/rdr.bin", path);
            newest = time;
        } else {
            LOG_D_AS(OPERATION, "file %s time %lu not the lastest file, lastest file time %lu\n",
                     entry->d_name, time, newest);
        }
    }
    return true;
}

// Saves the newest image, as much of it as one read into the client's buffer brings.
void save_newest_image(dmd_client* client, char* buffer, dmd_error_info* info) {
    char path[PATH_SIZE] = {};
    if (!find_newest_image(path)) {
        return;
    }
    const UniqueFd image = open_plain_file(path, O_RDONLY);
    if (!image.valid()) {
        LOG_M_AS(OPERATION, "open %s failed - %s\n", path, strerror(errno));
        return;
    }
    errno = 0;
    const int got = static_cast<int>(read(image.get(), buffer, client->buffer_size));
    const int reason = errno;
    LOG_D_AS(OPERATION, "read %s size %d\n", path, got);
    if (got <= 0) {
        LOG_M_AS(OPERATION, "read %s return %d - %s\n", path, got, strerror(reason));
        return;
    }
    dmd_compress_output(buffer, got, info, DUMP_BYTES);
}

}  // namespace

int sensorhub_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    dmd_error_info info = start_description(error_no);
    const UniqueBuffer buffer = start_dump(__FUNCTION__, client, RT_switch);
    if (buffer == nullptr) {
        return -1;
    }
    const MutexLock lock(client->mutex);
    const int reported = read_error_text(__FUNCTION__, client, buffer.get(), RT_switch, &info);
    if (reported > 0) {
        dmd_direct_output(buffer.get(), reported, &info, nullptr, DMD_OUTPUT_FULL);
    } else {
        describe_client(&info, client, RT_switch);
    }
    if (identify_product_version() == 1) {
        return -1;
    }
    const int refused = request_force_dump(__FUNCTION__, client, error_no);
    if (refused != 0) {
        return refused;
    }
    const int count = static_cast<int>(dsm_read_pending(client, buffer.get()));
    if (count < 0) {
        return count;
    }
    memset(buffer.get(), 0, client->buffer_size);
    sleep(SENSORHUB_IMAGE_WAIT_SECONDS);
    save_newest_image(client, buffer.get(), &info);
    return count;
}
