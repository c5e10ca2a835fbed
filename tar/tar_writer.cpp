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

// Zero bytes for paddings and for the end of the archive.
constexpr char ZEROS[COPY_SIZE] = {};
static_assert(sizeof ZEROS >= TAR_END_SIZE);

// Set once the message about leading "/" was logged, for all archives of the process.
std::atomic_flag leading_slash_reported = ATOMIC_FLAG_INIT;

const char* name_of_user(uint32_t id) {
    const passwd* const user = getpwuid(id);
    return user != nullptr ? user->pw_name : nullptr;
}

const char* name_of_group(uint32_t id) {
    const group* const entry = getgrgid(id);
    return entry != nullptr ? entry->gr_name : nullptr;
}

// Makes `name` that of `id`, where it has none the number.
void look_up(owner_name* name, uint32_t id, const char* (*find)(uint32_t id), char behind_number) {
    if (name->known && name->id == id) {
        return;
    }
    const MutexLock lock(lookup_mutex);
    const char* const found = find(id);
    if (found != nullptr) {
        copy_text(name->text, found);  // a longer name is cut to 31 characters
    } else {
        format_text(name->text, sizeof name->text, "%-8lld%c", static_cast<long long>(id), behind_number);
    }
    if (name->text[0] == '\0') {
        copy_text(name->text, "root");
    }
    name->id = id;
    name->known = true;
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
    look_up(&info->user, status->st_uid, name_of_user, ' ');
    look_up(&info->group, status->st_gid, name_of_group, '\t');
    copy_field(header->uname, info->user.text);
    copy_field(header->gname, info->group.text);
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

bool write_zeros(tb_info* info, uint64_t count) {
    while (count > 0) {
        const int part = static_cast<int>(std::min<uint64_t>(count, sizeof ZEROS));
        if (!write_archive(info, ZEROS, part)) {
            return false;
        }
        count -= part;
    }
    return true;
}

// The data of a regular file whose status was read before.
class MemberData {
  public:
    // Opens it and reads the first piece. Whatever has taken the file's place since its status was read
    // neither blocks the daemon nor leads it elsewhere. False on failure, with errno set.
    bool open_file(const char* path, const struct stat* status) {
        size_ = static_cast<uint64_t>(status->st_size);
        file_.reset(open(path, O_RDONLY | O_LARGEFILE | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
        if (!file_.valid()) {
            return false;
        }
        if (size_ > MAX_MEMBER_SIZE) {
            errno = EFBIG;  // readers would lose their place behind a size that its field cannot tell
            return false;
        }
        const int wanted = next_size(size_);
        char* const data = block_ + sizeof(ustar_header);
        // Not read: a FIFO, which others than root may make, has no place to read from. A device in the
        // file's place that brings as much as the file is taken for it.
        do {
            got_ = static_cast<int>(pread(file_.get(), data, wanted, 0));
        } while (got_ < 0 && errno == EINTR);
        if (got_ < wanted || wanted == 0) {
            struct stat opened;
            if (fstat(file_.get(), &opened) != 0) {
                return false;
            }
            if (!S_ISREG(opened.st_mode)) {
                errno = ESTALE;
                return false;
            }
            got_ = read_fully(file_.get(), data, wanted);
            return true;
        }
        return size_ == static_cast<uint64_t>(got_) || lseek(file_.get(), got_, SEEK_SET) == got_;
    }

    // Writes the header and the data, padded to whole blocks. Where the file ends early or cannot be read,
    // zero bytes stand in and *intact becomes false. False on a write error.
    bool write_with_header(tb_info* info, const ustar_header& header, bool* intact) {
        // The header goes with the first piece, and the padding with the last one: most members are one
        // piece.
        memcpy(block_, &header, sizeof header);
        int used = sizeof header;
        uint64_t remaining = size_;
        while (remaining > 0 && got_ > 0) {
            remaining -= got_;
            const uint64_t padding = remaining == 0 ? padding_of(size_) : 0;
            memset(block_ + used + got_, 0, padding);
            if (!write_archive(info, block_, used + got_ + static_cast<int>(padding))) {
                return false;
            }
            used = 0;
            got_ = remaining > 0 ? read_fully(file_.get(), block_, next_size(remaining)) : 0;
        }
        *intact = remaining == 0;
        return (used == 0 || write_archive(info, block_, used)) &&
               (*intact || write_zeros(info, remaining + padding_of(size_)));
    }

  private:
    static constexpr uint64_t padding_of(uint64_t size) {
        return (TAR_BLOCK_SIZE - size % TAR_BLOCK_SIZE) % TAR_BLOCK_SIZE;
    }
    static int next_size(uint64_t remaining) {
        return static_cast<int>(std::min<uint64_t>(remaining, COPY_SIZE));
    }
    static_assert(COPY_SIZE % TAR_BLOCK_SIZE == 0, "so that every piece leaves room for its padding");

    UniqueFd file_;
    uint64_t size_ = 0;
    int got_ = 0;  // bytes of the piece that was read last
    char block_[sizeof(ustar_header) + COPY_SIZE];
};

// Takes away what a write error left half written, so that what follows stands on its block.
void cut_archive(tb_info* info, int64_t start) {
    if (ftruncate64(info->tar_fd, start) == 0) {
        lseek64(info->tar_fd, start, SEEK_SET);
    }
    info->size = start;
}

// write_file_to_tarball as an action of the walker.
int write_member(const char* path, const struct stat* status, void* user_data) {
    return write_file_to_tarball(path, status, static_cast<tb_info*>(user_data));
}

}  // namespace

int write_file_to_tarball(const char* path, const struct stat* status, tb_info* info) {
    const hl_info* const earlier_links = info->hard_links.newest;
    info->current_hard_link = addhard_link_info(&info->hard_links, path, status);
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
    if (strlen(path) > MAX_PATH_LENGTH || *member_name == '\0') {
        LOG_M("%s: no name for a member; skipping", path);
        info->hard_links.drop_down_to(earlier_links);  // other names of it have no member to point at
        return 1;
    }

    MemberData data;
    const bool has_data = S_ISREG(status->st_mode) && info->current_hard_link == nullptr;
    if (has_data && !data.open_file(path, status)) {
        LOG_M("%s: Cannot open: %s", path, strerror(errno));
        info->hard_links.drop_down_to(earlier_links);
        return 0;
    }
    ustar_header header;
    if (!write_tar_header(&header, path, member_name, status, info)) {
        info->hard_links.drop_down_to(earlier_links);
        return 0;
    }
    const int64_t start = info->size;
    bool intact = true;
    const bool written = has_data ? data.write_with_header(info, header, &intact)
                                  : write_archive(info, &header, sizeof header);
    if (!written) {
        cut_archive(info, start);
        info->hard_links.drop_down_to(earlier_links);
    } else if (!intact) {
        LOG_M("%s: shorter than its size, or unreadable; zeros stand in", path);
    }
    return written && intact;
}

int write_tar_file(const char* archive_path, char** operands) {
    if (operands == nullptr || *operands == nullptr) {
        return ERROR_NO_OPERANDS;
    }
    // O_NONBLOCK: a FIFO in the archive's place must not hang the daemon.
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_TRUNC | O_LARGEFILE | O_NONBLOCK | O_CLOEXEC;
    UniqueFd archive(open(archive_path, FLAGS, 0644));
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
    if (S_ISFIFO(info.archive_status.st_mode)) {
        // Its reader might stop, or go, which would end the daemon.
        LOG_M("Error opening '%s'stderr:%s.\n", archive_path, strerror(ESPIPE));
        return ERROR_OPEN;
    }
    bool complete = true;
    for (char** operand = operands; *operand != nullptr; operand++) {
        if (!recursive_action(*operand, 1, 0, 0, write_member, write_member, &info)) {
            complete = false;
        }
    }
    // An archive without its end, or that the file system did not take, is not complete either.
    const int64_t end = info.size;
    if (!write_zeros(&info, TAR_END_SIZE)) {
        cut_archive(&info, end);
        complete = false;
    }
    if (archive.reset() != 0) {
        complete = false;
    }
    return complete ? 1 : 0;
}
