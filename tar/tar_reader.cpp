// Reading ustar archives.
#include "tar/tar_reader.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

#include "daemon/log.h"
#include "platform/text.h"
#include "tar/directory_walker.h"
#include "tar/tar_extract.h"
#include "tar/tar_io.h"
#include "tar/ustar_header.h"

namespace {

// So many directories of an archive get their attributes after their contents, the further ones at once: an
// archive does not decide on the daemon's memory.
constexpr int MAX_PENDING_DIRECTORIES = 1024;

// Set once the message about leading "/" was logged, for all archives of the process.
std::atomic_flag leading_slash_reported = ATOMIC_FLAG_INIT;

// Directories that were made and still lack their attributes: making their contents changes their times, and
// a read-only one would take none. They are set when the run ends, however it ends.
class PendingDirectories {
  public:
    PendingDirectories() = default;
    PendingDirectories(const PendingDirectories&) = delete;
    PendingDirectories& operator=(const PendingDirectories&) = delete;
    ~PendingDirectories() {
        while (first_ != nullptr) {
            const Entry* const done = first_;
            first_ = done->next;
            apply_member_attributes(done->member);
            delete done;
        }
    }

    // False when there is no room or no memory.
    bool add(const TarMember& member) {
        Entry* const entry =
            count_ < MAX_PENDING_DIRECTORIES ? new (std::nothrow) Entry{member, nullptr} : nullptr;
        if (entry == nullptr) {
            return false;
        }
        *end_ = entry;
        end_ = &entry->next;
        count_++;
        return true;
    }

  private:
    struct Entry {
        TarMember member;
        Entry* next;
    };
    Entry* first_ = nullptr;
    Entry** end_ = &first_;
    int count_ = 0;
};

template <size_t N>
int64_t number(const char (&field)[N]) {
    return parse_octal_field(field, N);
}

// Puts a member's name together as it stands in the archive. A long one is split at a "/"; older formats have
// other things in the second part's place and tell by the magic.
template <size_t N>
void read_name(const ustar_header& header, char (&name)[N]) {
    static_assert(N > sizeof header.prefix + 1 + sizeof header.name);
    const bool is_split = header.prefix[0] != '\0' && memcmp(header.magic, "ustar", sizeof header.magic) == 0;
    format_text(name, N, "%.*s%s%.*s", is_split ? static_cast<int>(sizeof header.prefix) : 0, header.prefix,
                is_split ? "/" : "", static_cast<int>(sizeof header.name), header.name);
}

// Reads what a header says of its member. False when it is not a header.
bool read_tar_header(const ustar_header& header, TarMember* member) {
    char name[MEMBER_NAME_SIZE];
    read_name(header, name);
    const size_t slashes = strspn(name, "/");
    copy_text(member->name, name + slashes);
    if (slashes > 0 && !leading_slash_reported.test_and_set()) {
        LOG_M("Removing leading '/' from member names");
    }
    const int64_t size = number(header.size);
    member->mode = static_cast<uint16_t>(number(header.mode));
    member->uid = static_cast<uint32_t>(number(header.uid));
    member->gid = static_cast<uint32_t>(number(header.gid));
    member->size = static_cast<uint64_t>(size);
    member->mtime = static_cast<uint32_t>(number(header.mtime));
    member->typeflag = header.typeflag;
    copy_text(member->linkname, header.linkname);
    member->devmajor = static_cast<uint32_t>(number(header.devmajor));
    member->devminor = static_cast<uint32_t>(number(header.devminor));
    // No member has a negative size: a header with one is as damaged as one with a wrong checksum.
    return number(header.chksum) == ustar_checksum(header) && size >= 0;
}

bool is_zero(const ustar_header& header) {
    const char* const bytes = reinterpret_cast<const char*>(&header);
    return std::all_of(bytes, bytes + sizeof header, [](char byte) { return byte == '\0'; });
}

bool is_selected(const TarMember& member, char** patterns) {
    for (char** pattern = patterns; pattern != nullptr && *pattern != nullptr; pattern++) {
        if (fnmatch(*pattern, member.name, FNM_LEADING_DIR) == 0) {
            return true;
        }
    }
    return patterns == nullptr;
}

bool extract_directory(const TarMember& member, PendingDirectories* pending) {
    if (make_directory(member.name, (member.mode & 07777) | 0700, MAKE_PARENTS) != 0) {
        return false;
    }
    if (!pending->add(member)) {
        apply_member_attributes(member);
    }
    return true;
}

bool cut_trailing_slashes(char* name) {
    bool any = false;
    for (size_t length = strlen(name); length > 0 && name[length - 1] == '/'; length--) {
        name[length - 1] = '\0';
        any = true;
    }
    return any;
}

// Makes a selected member, whose name has no trailing "/" any more; without `extract` passes over it. Returns
// 1, 0 when it failed, or UNKNOWN_TYPE.
constexpr int UNKNOWN_TYPE = -1;
int take_member(const TarMember& member, bool had_slash, int extract, PendingDirectories* pending) {
    switch (member.typeflag) {
        case TAR_REGULAR:
        case TAR_REGULAR_OLD:
            if (had_slash) {
                const bool made = !extract || extract_directory(member, pending);
                return tar_extract_regular_file(member, 0) && made;
            }
            return tar_extract_regular_file(member, extract);
        case TAR_DIRECTORY:
            return !extract || extract_directory(member, pending);
        case TAR_HARD_LINK:
            return !extract || tar_extract_hard_link(member);
        case TAR_SYMLINK:
            return !extract || tar_extract_symlink(member);
        case TAR_CHARACTER_DEVICE:
        case TAR_BLOCK_DEVICE:
        case TAR_FIFO:
            return !extract || tar_extract_special(member);
        default:
            return UNKNOWN_TYPE;
    }
}

}  // namespace

int read_tar_file(int fd, int extract, char** patterns) {
    PendingDirectories pending;
    bool failed = false;     // a member did: the result tells when the archive ends
    bool skip_next = false;  // the next member's name or link name was too long
    for (;;) {
        ustar_header header;
        const int got = read_fully(fd, &header, sizeof header);
        if (got > 0 && got < TAR_BLOCK_SIZE) {
            LOG_M("Error reading tar file");
            return 0;
        }
        const bool at_end = got == TAR_BLOCK_SIZE && is_zero(header);
        if (got <= 0 || at_end) {
            if (!at_end) {
                LOG_M("No end of archive found: %s", got == 0 ? "end of file" : strerror(errno));
            }
            if (failed) {
                LOG_M("Error exit delayed from previous errors");
                return 0;
            }
            return at_end ? 1 : got;
        }

        TarMember member;
        member.fd = fd;
        if (!read_tar_header(header, &member)) {
            LOG_M("Bad tar header, skipping");
            failed = true;
            continue;
        }
        if (member.name[0] == '\0') {
            continue;
        }
        if (skip_next || member.typeflag == TAR_LONG_LINK || member.typeflag == TAR_LONG_NAME) {
            skip_next = member.typeflag == TAR_LONG_LINK || member.typeflag == TAR_LONG_NAME;
            if (!skip_next) {
                LOG_M("%s: Long name or link name, skipping", member.name);
            }
            failed = !tar_extract_regular_file(member, 0) || failed;
            continue;
        }
        if (!is_selected(member, patterns)) {
            const bool has_data = member.typeflag == TAR_REGULAR || member.typeflag == TAR_REGULAR_OLD;
            failed = (has_data && !tar_extract_regular_file(member, 0)) || failed;
            continue;
        }

        // A "/" at the end would lead the calls on the name through a link.
        const bool had_slash = cut_trailing_slashes(member.name);
        const char* const fault = extract ? path_fault(member.name) : nullptr;
        if (fault != nullptr) {
            LOG_M("%s: Not extracted: %s", member.name, fault);
            failed = true;
        } else if (extract && !is_linked_already(member)) {
            unlink(member.name);
        }
        const int taken = take_member(member, had_slash, extract && fault == nullptr, &pending);
        if (taken == UNKNOWN_TYPE) {
            LOG_M("Unknown file type '%c' in tar file", member.typeflag);
            return 0;
        }
        failed = taken == 0 || failed;
    }
}
