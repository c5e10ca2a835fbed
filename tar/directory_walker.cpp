// Walking a path and everything below it.
#include "tar/directory_walker.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

// First size in bytes of a directory's list of names; it doubles as needed.
constexpr size_t FIRST_NAMES_SIZE = 1024;

// The names in a directory, each terminated, one after the other.
struct NameList {
    UniqueBuffer text;
    size_t used = 0;
    size_t capacity = 0;
};

bool add_name(NameList* names, const char* name) {
    const size_t size = strlen(name) + 1;
    if (names->capacity - names->used < size) {
        const size_t capacity = names->capacity == 0 ? FIRST_NAMES_SIZE : names->capacity * 2;
        char* const grown = static_cast<char*>(realloc(names->text.get(), capacity));
        if (grown == nullptr) {
            return false;
        }
        static_cast<void>(names->text.release());  // realloc freed it
        names->text.reset(grown);
        names->capacity = capacity;
    }
    memcpy(names->text.get() + names->used, name, size);
    names->used += size;
    return true;
}
static_assert(FIRST_NAMES_SIZE > sizeof(dirent::d_name), "one doubling must make room for any name");

// False when not all names could be read.
bool read_names(DIR* directory, NameList* names) {
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(directory);
        if (entry == nullptr) {
            return errno == 0;
        }
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        if (!add_name(names, entry->d_name)) {
            return false;
        }
    }
}

// Unlike opendir it stays off a link that has taken the directory's place since its status was read.
UniqueDir open_directory(const char* path, int follow_links) {
    const int flags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | (follow_links ? 0 : O_NOFOLLOW);
    UniqueFd fd(open(path, flags));
    UniqueDir directory(fd.valid() ? fdopendir(fd.get()) : nullptr);
    if (directory != nullptr) {
        fd.release();
    }
    return directory;
}

bool read_status(const char* path, int follow_links, struct stat* status) {
    if (path == nullptr) {
        errno = EFAULT;
        return false;
    }
    return (follow_links ? stat(path, status) : lstat(path, status)) == 0;
}

}  // namespace

int recursive_action(const char* path, int recurse, int follow_links, int depth_first,
                     walk_action file_action, walk_action directory_action, void* user_data) {
    struct stat status;
    if (!read_status(path, follow_links, &status)) {
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

    // All names are read before the first is walked: a stream held open on each level would let a deep tree
    // take every descriptor from the rest of the daemon.
    UniqueDir directory = open_directory(path, follow_links);
    NameList names;
    int result = directory != nullptr && read_names(directory.get(), &names);
    if (result == 0) {
        LOG_M("%s: not all of its entries can be read - %s", path, strerror(errno));
    }
    if (directory == nullptr) {
        return 0;
    }
    directory.reset();
    for (size_t at = 0; at < names.used; at += strlen(names.text.get() + at) + 1) {
        const UniqueBuffer child(concat_path_file(path, names.text.get() + at));
        if (!recursive_action(child.get(), recurse, follow_links, depth_first, file_action, directory_action,
                              user_data)) {
            result = 0;
        }
    }
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
    size_t length = copy_text(joined, size, path);
    length += copy_text(joined + length, size - length, separator);
    copy_text(joined + length, size - length, name);
    return joined;
}

const char* ends_with_slash(const char* path) {
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    const char* const last = path + strlen(path) - 1;
    return *last == '/' ? last : nullptr;
}
