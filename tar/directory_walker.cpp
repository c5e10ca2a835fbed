// Walking a path and everything below it.
#include "tar/directory_walker.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/log.h"
#include "platform/owned.h"
#include "platform/plain_file.h"
#include "platform/text.h"

namespace {

// The next entry but "." and ".."; null at the end, where errno is 0, and on an error.
const dirent* next_entry(DIR* directory) {
    const dirent* entry;
    do {
        errno = 0;
        entry = readdir(directory);
    } while (entry != nullptr && (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0));
    return entry;
}

bool read_status(const char* path, int follow_links, bool must_be_directory, struct stat* status) {
    if (path == nullptr) {
        errno = EFAULT;
        return false;
    }
    if ((follow_links ? stat(path, status) : lstat(path, status)) != 0) {
        return false;
    }
    if (must_be_directory && !S_ISDIR(status->st_mode)) {
        errno = S_ISLNK(status->st_mode) ? ELOOP : ENOTDIR;
        return false;
    }
    return true;
}

// A copy without any "/" at its end; null without memory.
UniqueBuffer without_last_slash(const char* path) {
    UniqueBuffer copy(strdup(path));
    size_t length = copy != nullptr ? strlen(path) : 0;
    while (length > 1 && copy[length - 1] == '/') {
        copy[--length] = '\0';
    }
    return copy;
}

}  // namespace

int recursive_action(const char* path, int recurse, int follow_links, int depth_first,
                     walk_action file_action, walk_action directory_action, void* user_data) {
    // A "/" at the end of the path would lead through a link. In names it stays.
    const bool has_slash = ends_with_slash(path) != nullptr;
    const UniqueBuffer copy = has_slash ? without_last_slash(path) : nullptr;
    const char* const place = has_slash ? copy.get() : path;
    struct stat status;
    if (!read_status(place, follow_links, has_slash, &status)) {
        LOG_M("Ignore archive the file %s, %s.", path != nullptr ? path : "(null)", strerror(errno));
        return 0;
    }
    if (!S_ISDIR(status.st_mode)) {
        return file_action(path, &status, user_data);
    }
    if (!recurse) {
        return directory_action(path, &status, user_data);
    }
    if (!depth_first) {
        const int done = directory_action(path, &status, user_data);
        if (done == 0 || done == WALK_SKIP_CONTENTS) {
            return done != 0;
        }
    }

    // A link may have taken its place since its status was read.
    UniqueDir directory = open_plain_directory(place, follow_links ? 0 : O_NOFOLLOW);
    if (directory == nullptr) {
        LOG_M("%s: not all of its entries can be read - %s", path, strerror(errno));
        return 0;
    }
    int result = 1;
    while (const dirent* const entry = next_entry(directory.get())) {
        const UniqueBuffer child(concat_path_file(path, entry->d_name));
        if (!recursive_action(child.get(), recurse, follow_links, depth_first, file_action, directory_action,
                              user_data)) {
            result = 0;
        }
    }
    // Some C libraries tell that a directory was removed meanwhile: it has no more entries then.
    if (errno != 0 && errno != ENOENT) {
        LOG_M("%s: not all of its entries can be read - %s", path, strerror(errno));
        result = 0;
    }
    directory.reset();
    if (depth_first && !directory_action(path, &status, user_data)) {
        result = 0;
    }
    return result;
}

char* concat_path_file(const char* path, const char* name) {
    if (path == nullptr) {
        path = "";
    }
    name += strspn(name, "/");
    const char* const separator = ends_with_slash(path) != nullptr ? "" : "/";
    const size_t size = strlen(path) + strlen(separator) + strlen(name) + 1;
    char* const joined = static_cast<char*>(malloc(size));
    if (joined == nullptr) {
        LOG_M("outbuf malloc failed.\n");
        return nullptr;
    }
    format_text(joined, size, "%s%s%s", path, separator, name);
    return joined;
}

const char* ends_with_slash(const char* path) {
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    const char* const last = path + strlen(path) - 1;
    return *last == '/' ? last : nullptr;
}
