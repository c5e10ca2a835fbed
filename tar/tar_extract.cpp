// Making the members of an archive under the current directory.
#include "tar/tar_extract.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"
#include "tar/lookup.h"
#include "tar/ustar_header.h"

namespace {

// Bytes read at a time, whole blocks.
constexpr int READ_SIZE = 10240;
static_assert(READ_SIZE % TAR_BLOCK_SIZE == 0);

constexpr mode_t PERMISSIONS = 07777;
constexpr mode_t SET_ID_BITS = S_ISUID | S_ISGID;

bool make_parent(const TarMember& member) {
    char parent[MEMBER_NAME_SIZE];
    copy_text(parent, member.name);
    return make_directory(dirname(parent), MODE_AS_CREATED, MAKE_PARENTS) == 0;
}

// Makes a regular member's new file, in the place of what has its name, and opens it. The set-id bits come
// with the owner.
UniqueFd create_file(const TarMember& member) {
    const auto create = [&member] {
        const mode_t mode = member.mode & PERMISSIONS & ~SET_ID_BITS;
        return UniqueFd(open(member.name, O_WRONLY | O_CREAT | O_EXCL | O_LARGEFILE | O_CLOEXEC, mode));
    };
    // Mostly the directory is there and nothing has the name: only a failure is looked into.
    UniqueFd file = create();
    const int reason = errno;
    if (!file.valid() &&
        ((reason == ENOENT && make_parent(member)) || (reason == EEXIST && unlink(member.name) == 0))) {
        file = create();
    }
    return file;
}

// apply_member_attributes for a file that is open.
void apply_attributes_to(int file, const TarMember& member) {
    static_cast<void>(fchown(file, member.uid, member.gid) != 0);  // may not be allowed
    const timespec times[] = {{0, UTIME_NOW}, {member.mtime, 0}};
    if (fchmod(file, member.mode & PERMISSIONS) == 0) {
        futimens(file, times);
    }
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

// Whether what is made at `name`, a path without a leading "/", could lie elsewhere: ".." is in it, or a link
// stands on its way, as archives can bring them.
bool leads_out(const char* name) {
    const char* part = name;
    for (;;) {
        const char* const end = part + strcspn(part, "/");
        if (end - part == 2 && memcmp(part, "..", 2) == 0) {
            return true;
        }
        if (*end == '\0') {
            return false;
        }
        char way[MEMBER_NAME_SIZE];
        copy_text(way, end - name + 1, name);
        struct stat status;
        if (lstat(way, &status) == 0 && S_ISLNK(status.st_mode)) {
            return true;
        }
        part = end + 1;
    }
}

// Whether the member is a hard link to what stands in its place, as when a path was archived twice.
bool is_link_to_itself(const TarMember& member) {
    const char* const target = target_of(member);
    if (member.typeflag != TAR_HARD_LINK || leads_out(target)) {
        return false;
    }
    struct stat found;
    struct stat there;
    return lstat(target, &found) == 0 && lstat(member.name, &there) == 0 && found.st_dev == there.st_dev &&
           found.st_ino == there.st_ino && !S_ISDIR(found.st_mode);
}

// Makes a directory. False with a message.
bool extract_directory(const TarMember& member, PendingDirectories* pending) {
    // Until its contents are made it belongs to its maker alone.
    if (make_directory(member.name, S_IRWXU, MAKE_PARENTS) != 0) {
        return false;
    }
    // Below a file nothing was made: by the end a link may be in the file's place, and lead elsewhere.
    struct stat status;
    if (lstat(member.name, &status) == 0) {
        pending->add(member);
    }
    return true;
}

}  // namespace

bool is_regular(const TarMember& member) {
    return member.typeflag == TAR_REGULAR || member.typeflag == TAR_REGULAR_OLD;
}

bool skip_data(const TarMember& member) {
    return !is_regular(member) || tar_extract_regular_file(member, 0);
}

PendingDirectories::~PendingDirectories() {
    while (first_ != nullptr) {
        const UniqueBlock<Entry> entry(first_);
        first_ = entry->next;
        apply_member_attributes(entry->member);
    }
}

void PendingDirectories::add(const TarMember& member) {
    Entry* const added = allocate<Entry>().release();
    if (added == nullptr) {
        apply_member_attributes(member);
        return;
    }
    Entry** at = &first_;
    while (*at != nullptr && strlen((*at)->member.name) >= strlen(member.name)) {
        at = &(*at)->next;
    }
    *added = {member, *at};
    *at = added;
}

int tar_extract_regular_file(const TarMember& member, int extract) {
    UniqueFd file = extract ? create_file(member) : UniqueFd();
    bool made = file.valid();
    char buffer[READ_SIZE];
    int64_t remaining = member.size;
    while (remaining > 0) {
        const int wanted = static_cast<int>(std::min<int64_t>(remaining, READ_SIZE));
        const int got = read_fully(member.fd, buffer, padded_to_blocks(wanted));
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
    if (made) {
        apply_attributes_to(file.get(), member);
        made = file.reset() == 0;
    }
    return made || !extract;
}

int tar_extract_hard_link(const TarMember& member) {
    const char* const target = target_of(member);
    if (leads_out(target) || !make_parent(member) || link(target, member.name) != 0) {
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
    }
    apply_member_attributes(member);
    return 1;
}

int make_directory(const char* path, long mode, int flags) {
    if ((flags & MAKE_PARENTS) != 0) {
        struct stat status;
        if (stat(path, &status) == 0 || errno != ENOENT) {
            return 0;
        }
        char copy[MEMBER_NAME_SIZE];
        copy_text(copy, path);
        const char* const parent = dirname(copy);
        const mode_t mask = umask(0);  // there is no other way to read it
        umask(mask);
        // What is its own parent has no other: "." in a directory that was removed.
        if (strcmp(parent, path) != 0 &&
            make_directory(parent, (~mask & 0477) | S_IWUSR | S_IXUSR, MAKE_PARENTS) != 0) {
            return -1;
        }
    }
    // At no moment is it open to more users than it is to be.
    if (mkdir(path, mode == MODE_AS_CREATED ? 0777 : static_cast<mode_t>(mode) & 0777) != 0) {
        LOG_M("Cannot create directory `%s'", path);
        return -1;
    }
    if (mode != MODE_AS_CREATED && chmod(path, static_cast<mode_t>(mode)) != 0) {
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
        const timespec times[] = {{0, UTIME_NOW}, {member.mtime, 0}};
        result = utimensat(AT_FDCWD, name, times, AT_SYMLINK_NOFOLLOW);
    }
    return result;
}

bool extract_member(const TarMember& member, PendingDirectories* pending) {
    if (leads_out(member.name)) {
        LOG_M_AS("read_tar_file", "%s: Not extracted: leads out of the directory", member.name);
        skip_data(member);
        return false;
    }
    if (is_link_to_itself(member)) {
        return true;
    }
    if (!is_regular(member)) {
        unlink(member.name);
    }
    switch (member.typeflag) {
        case TAR_REGULAR:
        case TAR_REGULAR_OLD:
            return tar_extract_regular_file(member, 1);
        case TAR_DIRECTORY:
            return extract_directory(member, pending);
        case TAR_HARD_LINK:
            return tar_extract_hard_link(member);
        case TAR_SYMLINK:
            return tar_extract_symlink(member);
        case TAR_CHARACTER_DEVICE:
        case TAR_BLOCK_DEVICE:
        case TAR_FIFO:
            return tar_extract_special(member);
        default:
            return false;
    }
}
