// Making the members of an archive under the current directory.
#include "tar/tar_extract.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemon/log.h"
#include "platform/owned.h"
#include "platform/text.h"
#include "tar/lookup.h"
#include "tar/tar_io.h"
#include "tar/ustar_header.h"

namespace {

// Bytes read at a time, whole blocks.
constexpr int READ_SIZE = 10240;
static_assert(READ_SIZE % TAR_BLOCK_SIZE == 0);

constexpr mode_t PERMISSIONS = 07777;
constexpr mode_t SET_ID_BITS = S_ISUID | S_ISGID;

bool has_parent_component(const char* name) {
    while (*name != '\0') {
        const size_t length = strcspn(name, "/");
        if (length == 2 && name[0] == '.' && name[1] == '.') {
            return true;
        }
        name += length;
        name += strspn(name, "/");
    }
    return false;
}

bool make_parent(const TarMember& member) {
    if (member.has_parent) {
        return true;
    }
    char parent[MEMBER_NAME_SIZE];
    copy_text(parent, member.name);
    return make_directory(dirname(parent), MODE_AS_CREATED, MAKE_PARENTS) == 0;
}

// Opens a regular member's new file, in the place of what has its name. What is there and cannot be taken
// away stays as it is: it may be a directory. The set-id bits come with the owner.
UniqueFd create_file(const TarMember& member) {
    if (!make_parent(member)) {
        return UniqueFd();
    }
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_EXCL | O_LARGEFILE | O_CLOEXEC;
    const mode_t mode = member.mode & PERMISSIONS & ~SET_ID_BITS;
    UniqueFd file(open(member.name, FLAGS, mode));
    if (!file.valid() && errno == EEXIST && unlink(member.name) == 0) {
        file.reset(open(member.name, FLAGS, mode));
    }
    return file;
}

// The times of a member: accessed now, modified at its own.
struct MemberTimes {
    explicit MemberTimes(const TarMember& member) : times{{0, UTIME_NOW}, {member.mtime, 0}} {}
    const timespec times[2];
};

// As apply_member_attributes, for the member's open file, and at less than half the cost.
void apply_file_attributes(const TarMember& member, int file) {
    static_cast<void>(fchown(file, member.uid, member.gid));
    if (fchmod(file, member.mode & PERMISSIONS) == 0) {
        futimens(file, MemberTimes(member).times);
    }
}

// Reads the last piece of a member's data, `size` bytes padded to whole blocks, into the READ_SIZE bytes at
// `buffer`, and what there is room for of the header behind it. Returns as read_fully does for the data.
int read_last_piece(const TarMember& member, char* buffer, int size) {
    if (size + TAR_BLOCK_SIZE > READ_SIZE) {
        return read_fully(member.fd, buffer, size);
    }
    ssize_t got;
    do {
        got = read(member.fd, buffer, size + TAR_BLOCK_SIZE);
    } while (got < 0 && errno == EINTR);
    if (got >= size) {
        member.ahead->size = static_cast<int>(got) - size;
        memcpy(&member.ahead->block, buffer + size, member.ahead->size);
        return size;
    }
    if (got <= 0) {
        return static_cast<int>(got);
    }
    const int rest = read_fully(member.fd, buffer + got, size - static_cast<int>(got));
    return rest < 0 ? -1 : static_cast<int>(got) + rest;
}

// A hard link's target. The writer stores it as an absolute path; like the members it lies below the current
// directory.
const char* target_of(const TarMember& member) {
    return member.linkname + strspn(member.linkname, "/");
}

dev_t device_of(const TarMember& member) {
    const uint32_t high_minor = (member.devminor & 0xfff00) << 12;
    return high_minor | (member.devmajor & 0xfff) << 8 | (member.devminor & 0xff);
}

}  // namespace

const char* path_fault(const char* name, bool has_parent) {
    if (has_parent_component(name)) {
        return "leads out of the directory";
    }
    if (has_parent) {
        return nullptr;
    }
    char path[MEMBER_NAME_SIZE];
    copy_text(path, name);
    for (char* slash = strchr(path, '/');; slash = strchr(slash + 1, '/')) {
        if (slash != nullptr) {
            *slash = '\0';
        }
        struct stat status;
        if (lstat(path, &status) != 0) {
            return errno == ENOENT ? nullptr : strerror(errno);
        }
        if (slash == nullptr) {
            return nullptr;
        }
        if (!S_ISDIR(status.st_mode)) {
            return strerror(ENOTDIR);
        }
        *slash = '/';
    }
}

int tar_extract_regular_file(const TarMember& member, int extract) {
    UniqueFd file;
    if (extract) {
        file = create_file(member);
    }
    bool made = file.valid();
    char buffer[READ_SIZE];
    uint64_t remaining = member.size;
    while (remaining > 0) {
        const int wanted = static_cast<int>(std::min<uint64_t>(remaining, READ_SIZE));
        const int padded = (wanted + TAR_BLOCK_SIZE - 1) / TAR_BLOCK_SIZE * TAR_BLOCK_SIZE;
        const int got = remaining > READ_SIZE ? read_fully(member.fd, buffer, padded)
                                              : read_last_piece(member, buffer, padded);
        if (got <= 0) {
            LOG_M("Unexpected EOF in archive");
            return 0;
        }
        const int used = std::min(got, wanted);
        // After a failed write the rest is read all the same: the next header stands behind it.
        if (made && write_fully(file.get(), buffer, used) != used) {
            made = false;
        }
        remaining -= used;
    }
    if (!extract) {
        return 1;
    }
    if (made) {
        apply_file_attributes(member, file.get());
    }
    return file.reset() == 0 && made ? 1 : 0;
}

int tar_extract_hard_link(const TarMember& member) {
    const char* const target = target_of(member);
    struct stat found;
    bool made = path_fault(target, false) == nullptr && lstat(target, &found) == 0 && !S_ISDIR(found.st_mode);
    // A path that was archived twice is a link to itself. Nothing is taken away for a target that cannot be
    // one.
    struct stat there;
    if (made &&
        (lstat(member.name, &there) != 0 || there.st_dev != found.st_dev || there.st_ino != found.st_ino)) {
        unlink(member.name);
        made = make_parent(member) && link(target, member.name) == 0;
    }
    if (!made) {
        LOG_M("%s: Cannot create hard link to '%s'", member.name, member.linkname);
        return 0;
    }
    apply_member_attributes(member);
    return 1;
}

int tar_extract_symlink(const TarMember& member) {
    if (!make_parent(member) || symlink(member.linkname, member.name) != 0) {
        LOG_M("%s: Cannot create symlink to '%s'", member.name, member.linkname);
        return 0;
    }
    apply_member_attributes(member);
    return 1;
}

int tar_extract_special(const TarMember& member) {
    if (S_ISCHR(member.mode) || S_ISBLK(member.mode) || S_ISSOCK(member.mode)) {
        if (!make_parent(member) || mknod(member.name, member.mode, device_of(member)) != 0) {
            LOG_M("%s: Cannot mknod", member.name);
            return 0;
        }
    } else if (S_ISFIFO(member.mode)) {
        if (!make_parent(member) || mkfifo(member.name, member.mode & PERMISSIONS) != 0) {
            LOG_M("%s: Cannot mkfifo", member.name);
            return 0;
        }
    } else {
        LOG_M("%s: No node has mode %o, nothing created", member.name, member.mode);
        return 1;
    }
    apply_member_attributes(member);
    return 1;
}

int make_directory(const char* path, long mode, int flags) {
    struct stat status;
    const bool with_parents = (flags & MAKE_PARENTS) != 0;
    if (with_parents) {
        if (stat(path, &status) == 0 || errno != ENOENT) {
            return 0;
        }
        const size_t size = strlen(path) + 1;
        const UniqueBuffer copy = allocate_zeroed(size);
        if (copy == nullptr) {
            LOG_M("Cannot create directory `%s'", path);
            return -1;
        }
        copy_text(copy.get(), size, path);
        const char* const parent = dirname(copy.get());
        // What is its own parent has no other: "." in a directory that was removed.
        if (strcmp(parent, path) != 0 && make_directory(parent, MODE_OF_PARENTS, MAKE_PARENTS) != 0) {
            return -1;
        }
    }
    // At no moment is it open to more users than it is to be.
    const mode_t at_first = mode >= 0 ? static_cast<mode_t>(mode) & 0777 : 0777;
    // Making the parents of "a/." has made it as well.
    if (mkdir(path, at_first) != 0 &&
        !(with_parents && errno == EEXIST && lstat(path, &status) == 0 && S_ISDIR(status.st_mode))) {
        LOG_M("Cannot create directory `%s'", path);
        return -1;
    }
    if (mode == MODE_AS_CREATED) {
        return 0;
    }
    bool known = true;
    if (mode == MODE_OF_PARENTS) {
        // What the umask left says as much as the umask, which could only be read by changing it for the
        // files that other threads create meanwhile.
        known = stat(path, &status) == 0;
        mode = (status.st_mode & 0777) | S_IWUSR | S_IXUSR;
    }
    if (!known || chmod(path, static_cast<mode_t>(mode)) != 0) {
        LOG_M("Cannot set permissions of directory `%s'", path);
        return -1;
    }
    return 0;
}

int apply_member_attributes(const TarMember& member) {
    const char* const name = member.name;
    int result = lchown(name, member.uid, member.gid);
    struct stat status;
    // A link's own mode cannot be set, and its target is no part of the member.
    if (lstat(name, &status) != 0 || S_ISLNK(status.st_mode)) {
        return result;
    }
    result = chmod(name, member.mode & PERMISSIONS);
    if (result == 0) {
        result = utimensat(AT_FDCWD, name, MemberTimes(member).times, AT_SYMLINK_NOFOLLOW);
    }
    return result;
}
