// Writing ustar archives.
#include "tar/tar_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/mutex.h"
#include "platform/owned.h"
#include "platform/plain_file.h"
#include "platform/text.h"
#include "tar/directory_walker.h"
#include "tar/lookup.h"
#include "tar/ustar_header.h"

namespace {

constexpr int ERROR_NO_OPERANDS = -14;
constexpr int ERROR_OPEN = -13;

// Longest path that is archived, in characters: one less than the name field, for a directory's "/".
constexpr size_t MAX_PATH_LENGTH = sizeof(ustar_header::name) - 1;

// Bytes copied at a time.
constexpr int COPY_SIZE = 1024;

// The largest size in bytes that the size field tells truly: eleven octal digits.
constexpr uint64_t MAX_MEMBER_SIZE = 077777777777;
static_assert(sizeof(stat::st_size) == 8 && sizeof(stat::st_ino) == 8, "as wide on a 32-bit phone");

// Set once the message about leading "/" was logged, for all archives of the process.
std::atomic_flag leading_slash_reported = ATOMIC_FLAG_INIT;

void look_up_owners(owner_names* owners, uint32_t uid, uint32_t gid) {
    if (owners->known && owners->uid == uid && owners->gid == gid) {
        return;
    }
    *owners = {true, uid, gid, "", ""};
    format_text(owners->user, sizeof owners->user, "%-8lld ", static_cast<long long>(uid));
    format_text(owners->group, sizeof owners->group, "%-8lld\t", static_cast<long long>(gid));
    const MutexLock lock(lookup_mutex);
    const passwd* const user = getpwuid(uid);
    if (user != nullptr) {
        copy_text(owners->user, user->pw_name);  // a longer name is cut to 31 characters
    }
    const group* const group = getgrgid(gid);
    if (group != nullptr) {
        copy_text(owners->group, group->gr_name);
    }
    for (char* const name : {owners->user, owners->group}) {
        if (name[0] == '\0') {
            copy_text(name, sizeof owners->user, "root");
        }
    }
}

template <size_t N>
void fill_number(char (&field)[N], uint64_t value) {
    format_octal_field(field, N, value);
}

// Fills what depends on the member's type. False when such a member is not archived.
bool fill_type(ustar_header* header, const struct stat* status, const hl_info* link) {
    if (link != nullptr) {
        header->typeflag = TAR_HARD_LINK;
        copy_field(header->linkname, link->name);
        return true;
    }
    switch (status->st_mode & S_IFMT) {
        case S_IFDIR:
            header->typeflag = TAR_DIRECTORY;
            header->name[strnlen(header->name, MAX_PATH_LENGTH)] = '/';
            return true;
        case S_IFCHR:
        case S_IFBLK:
            header->typeflag = S_ISCHR(status->st_mode) ? TAR_CHARACTER_DEVICE : TAR_BLOCK_DEVICE;
            fill_number(header->devmajor, (status->st_rdev >> 8) & 0xff);
            fill_number(header->devminor, status->st_rdev & 0xff);
            return true;
        case S_IFIFO:
            header->typeflag = TAR_FIFO;
            return true;
        case S_IFREG:
            header->typeflag = TAR_REGULAR;
            fill_number(header->size, static_cast<uint64_t>(status->st_size));
            return true;
        default:
            return false;
    }
}

// False when the archive did not take all bytes; of an archive the first such failure is logged.
bool write_archive(tb_info* info, const void* bytes, int count) {
    if (write_fully(info->tar_fd, bytes, count) == count) {
        info->size += count;
        return true;
    }
    if (!info->write_failed) {
        LOG_M_AS("write_tar_file", "the archive is cut or lacks members - %s\n", strerror(errno));
        info->write_failed = true;
    }
    return false;
}

// Writes the header of a member to *header. False when such a member is not archived.
bool write_tar_header(ustar_header* header, const char* path, const char* member_name,
                      const struct stat* status, tb_info* info) {
    *header = {};
    copy_field(header->name, member_name);
    fill_number(header->mode, status->st_mode);
    fill_number(header->uid, status->st_uid);
    fill_number(header->gid, status->st_gid);
    fill_number(header->size, 0);
    // As wide as on the phone, so that archives are the same everywhere.
    fill_number(header->mtime, static_cast<uint32_t>(status->st_mtime));
    copy_field(header->magic, "ustar");
    copy_field(header->version, "  ");
    look_up_owners(&info->owners, status->st_uid, status->st_gid);
    copy_field(header->uname, info->owners.user);
    copy_field(header->gname, info->owners.group);
    if (!fill_type(header, status, info->current_hard_link)) {
        if (!S_ISLNK(status->st_mode)) {
            LOG_M("%s: Unknown file type", path);
        }
        return false;
    }
    header->chksum[sizeof header->chksum - 1] = ' ';
    format_octal_field(header->chksum, sizeof header->chksum - 1, ustar_checksum(*header));
    return true;
}

enum class Written { WHOLE, FILLED_UP, NOT };

// Writes a member's header and `size` bytes of data, padded to whole blocks. Where the file ends early or
// cannot be read, zero bytes fill it up.
Written write_blocks(tb_info* info, const ustar_header& header, int file, uint64_t size) {
    static_assert(COPY_SIZE % TAR_BLOCK_SIZE == 0, "so that every piece has room for its padding");
    char blocks[sizeof header + COPY_SIZE];
    memcpy(blocks, &header, sizeof header);
    int used = sizeof header;  // it goes with the first piece: many members are written at once
    bool readable = true;
    do {
        const int wanted = static_cast<int>(std::min<uint64_t>(size, COPY_SIZE));
        const int padded = padded_to_blocks(wanted);
        const int got = readable ? std::max(read_fully(file, blocks + used, wanted), 0) : 0;
        readable = got == wanted;
        memset(blocks + used + got, 0, padded - got);
        if (!write_archive(info, blocks, used + padded)) {
            return Written::NOT;
        }
        size -= wanted;
        used = 0;
    } while (size > 0);
    return readable ? Written::WHOLE : Written::FILLED_UP;
}

// Takes away what a write error left half written, so that what follows stands on its block.
void cut_archive(tb_info* info, int64_t start) {
    if (ftruncate64(info->tar_fd, start) == 0) {
        lseek64(info->tar_fd, start, SEEK_SET);
    }
    info->size = start;
}

// write_file_to_tarball as an action of the walker. Below a path that is too long every path is.
int write_member(const char* path, const struct stat* status, void* user_data) {
    const int done = write_file_to_tarball(path, status, static_cast<tb_info*>(user_data));
    return S_ISDIR(status->st_mode) && strlen(path) > MAX_PATH_LENGTH ? WALK_SKIP_CONTENTS : done;
}

}  // namespace

int write_file_to_tarball(const char* path, const struct stat* status, tb_info* info) {
    info->current_hard_link = info->hard_links.find(status);
    if (S_ISSOCK(status->st_mode)) {
        LOG_M("%s: socket ignored", path);
        return 1;
    }
    if (status->st_dev == info->archive_status.st_dev && status->st_ino == info->archive_status.st_ino) {
        LOG_M("%s: file is the archive; skipping", path);
        return 1;
    }
    const char* const member_name = path + strspn(path, "/");
    if (member_name != path && !leading_slash_reported.test_and_set()) {
        LOG_M("Removing leading '/' from member names");
    }
    if (*member_name == '\0') {
        LOG_M("%s: no name for a member; skipping", path);
        return 1;
    }
    if (strlen(path) > MAX_PATH_LENGTH) {
        LOG_M("%s: path too long for a member; skipping", path);
        return 1;
    }

    ustar_header header;
    if (!write_tar_header(&header, path, member_name, status, info)) {
        return 0;
    }
    UniqueFd file;
    uint64_t size = 0;
    if (header.typeflag == TAR_REGULAR) {
        size = static_cast<uint64_t>(status->st_size);
        file = open_plain_file(path, O_RDONLY);
        if (!file.valid()) {
            LOG_M("%s: Cannot open: %s", path, strerror(errno));
            return 0;
        }
        if (size > MAX_MEMBER_SIZE) {
            LOG_M("%s: larger than a member can be", path);
            return 0;
        }
    }
    const int64_t start = info->size;
    const Written written = write_blocks(info, header, file.get(), size);
    if (written == Written::NOT) {
        cut_archive(info, start);
        return 0;
    }
    if (info->current_hard_link == nullptr) {
        addhard_link_info(&info->hard_links, path, status);
    }
    if (written == Written::FILLED_UP) {
        LOG_M("%s: shorter than its size, or unreadable; zeros stand in", path);
        return 0;
    }
    return 1;
}

int write_tar_file(const char* archive_path, char** operands) {
    if (operands == nullptr || *operands == nullptr) {
        return ERROR_NO_OPERANDS;
    }
    UniqueFd archive = open_plain_file(archive_path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!archive.valid()) {
        LOG_M("Error opening '%s'stderr:%s.\n", archive_path, strerror(errno));
        return ERROR_OPEN;
    }
    tb_info info = {};
    info.tar_fd = archive.get();
    if (fstat(info.tar_fd, &info.archive_status) != 0) {
        LOG_M("stat %d tb_info.tar_fd failed.", info.tar_fd);
        return -1;
    }
    bool complete = true;
    for (char** operand = operands; *operand != nullptr; operand++) {
        if (!recursive_action(*operand, 1, 0, 0, write_member, write_member, &info)) {
            complete = false;
        }
    }
    // An archive without its end, or that the file system did not take, is not complete either.
    const int64_t end = info.size;
    constexpr char ZEROS[TAR_END_SIZE] = {};
    if (!write_archive(&info, ZEROS, sizeof ZEROS)) {
        cut_archive(&info, end);
        complete = false;
    }
    if (archive.reset() != 0) {
        complete = false;
    }
    return complete ? 1 : 0;
}
