// Reading ustar archives.
#include "tar/tar_reader.h"

#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "daemon/log.h"
#include "platform/text.h"
#include "tar/tar_extract.h"
#include "tar/tar_io.h"
#include "tar/ustar_header.h"

namespace {

// So many directories of an archive can wait for their attributes at a time: an archive does not decide on
// the daemon's memory. Of archives that bring more before they fill them, the others lose their times and,
// without root, the contents of read-only ones.
constexpr int MAX_PENDING_DIRECTORIES = 1024;

// Set once the message about leading "/" was logged, for all archives of the process.
std::atomic_flag leading_slash_reported = ATOMIC_FLAG_INIT;

// Directories that were made and still lack their attributes: making their contents changes their times, and
// a read-only one would take none. They are set when the run ends, however it ends, contents first.
class PendingDirectories {
  public:
    PendingDirectories() = default;
    PendingDirectories(const PendingDirectories&) = delete;
    PendingDirectories& operator=(const PendingDirectories&) = delete;
    ~PendingDirectories() { settle_but_above(""); }

    // Without memory the attributes are set at once; without room, those of directories that the member is
    // not in. Of two members with one name the later one tells.
    void add(const TarMember& member) {
        if (count_ == MAX_PENDING_DIRECTORIES) {
            settle_but_above(member.name);
        }
        const size_t length = strlen(member.name);
        Entry** at = &longest_;
        for (; *at != nullptr && strlen((*at)->member.name) >= length; at = &(*at)->next) {
            if (strcmp((*at)->member.name, member.name) == 0) {
                (*at)->member = member;
                return;
            }
        }
        Entry* const entry = new (std::nothrow) Entry{member, *at};
        if (entry == nullptr) {
            apply_member_attributes(member);
            return;
        }
        *at = entry;
        count_++;
    }

  private:
    struct Entry {
        TarMember member;
        Entry* next;
    };

    // Sets the attributes of all, the longest names first, but of those directories that `name` is in or is.
    void settle_but_above(const char* name) {
        for (Entry** at = &longest_; *at != nullptr;) {
            Entry* const entry = *at;
            const size_t length = strlen(entry->member.name);
            if (strncmp(entry->member.name, name, length) == 0 &&
                (name[length] == '/' || name[length] == '\0')) {
                at = &entry->next;
                continue;
            }
            apply_member_attributes(entry->member);
            *at = entry->next;
            delete entry;
            count_--;
        }
    }

    Entry* longest_ = nullptr;  // by falling length of the names, so that contents come first
    int count_ = 0;
};

// The directory that a file was made in last: most files lie where the one before them does. It stays
// what it is, for nothing here takes a directory away.
class KnownDirectory {
  public:
    bool holds(const char* name) const {
        const size_t length = directory_length(name);
        return length == length_ && memcmp(name, path_, length) == 0;
    }
    void remember_that_of(const char* name) {
        length_ = directory_length(name);
        memcpy(path_, name, length_);
    }

  private:
    // With its "/"; of what lies in the current directory it is nothing.
    static size_t directory_length(const char* name) {
        const char* const slash = strrchr(name, '/');
        return slash != nullptr ? static_cast<size_t>(slash + 1 - name) : 0;
    }

    char path_[MEMBER_NAME_SIZE];
    size_t length_ = SIZE_MAX;  // none is known yet
};

template <size_t N>
int64_t number(const char (&field)[N]) {
    return parse_number_field(field, N);
}

// Puts a member's name together as it stands in the archive. A long one is split at a "/"; older formats have
// other things in the second part's place and tell by the magic.
template <size_t N>
void read_name(const ustar_header& header, char (&name)[N]) {
    static_assert(N > sizeof header.prefix + 1 + sizeof header.name);
    const bool is_split = header.prefix[0] != '\0' && memcmp(header.magic, "ustar", sizeof header.magic) == 0;
    size_t length = 0;
    if (is_split) {
        length = copy_text(name, sizeof header.prefix + 1, header.prefix);
        name[length++] = '/';
    }
    copy_text(name + length, sizeof header.name + 1, header.name);
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
    member->mtime = static_cast<time_t>(std::clamp<int64_t>(
        number(header.mtime), std::numeric_limits<time_t>::min(), std::numeric_limits<time_t>::max()));
    member->typeflag = header.typeflag;
    copy_text(member->linkname, header.linkname);
    member->devmajor = static_cast<uint32_t>(number(header.devmajor));
    member->devminor = static_cast<uint32_t>(number(header.devminor));
    // No member has a negative size: a header with one is as damaged as one with a wrong checksum.
    return number(header.chksum) == ustar_checksum(header) && size >= 0;
}

// The end of an archive. A block that only lost its name is not: members may follow.
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

// False with a message.
bool extract_directory(const TarMember& member, PendingDirectories* pending) {
    // Until its contents are made it belongs to its maker alone.
    if (make_directory(member.name, S_IRWXU, MAKE_PARENTS) != 0) {
        return false;
    }
    struct stat status;
    if (lstat(member.name, &status) != 0 || !S_ISDIR(status.st_mode)) {
        LOG_M_AS("read_tar_file", "%s: Not extracted: %s", member.name, strerror(ENOTDIR));
        return false;
    }
    pending->add(member);
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

bool is_regular(const TarMember& member) {
    return member.typeflag == TAR_REGULAR || member.typeflag == TAR_REGULAR_OLD;
}

// Reads the next header, of which `ahead` may have a part or all. Returns as read_fully does.
int read_header(int fd, HeaderAhead* ahead, ustar_header* header) {
    const int known = std::exchange(ahead->size, 0);
    memcpy(header, &ahead->block, known);
    const int got = read_fully(fd, reinterpret_cast<char*>(header) + known, TAR_BLOCK_SIZE - known);
    return got < 0 ? -1 : known + got;
}

constexpr int UNKNOWN_TYPE = -1;

// Reads past a selected member's data and, with `extract`, makes it where it may be made. Returns 1, 0 when
// it failed, or UNKNOWN_TYPE when nobody knows whether it has data.
int take_member(TarMember* member, int extract, KnownDirectory* known, PendingDirectories* pending) {
    // A "/" at the end would lead the calls on the name through a link.
    const bool had_slash = cut_trailing_slashes(member->name);
    bool intact = true;
    const bool is_file = is_regular(*member) && !had_slash;
    member->has_parent = is_file && known->holds(member->name);
    if (extract) {
        const char* const fault = path_fault(member->name, member->has_parent);
        if (fault != nullptr) {
            LOG_M_AS("read_tar_file", "%s: Not extracted: %s", member->name, fault);
            intact = false;
        } else if (member->typeflag != TAR_HARD_LINK && !is_file) {
            unlink(member->name);  // these two do so themselves
        }
    }
    const bool make = extract && intact;
    switch (member->typeflag) {
        case TAR_REGULAR:
        case TAR_REGULAR_OLD:
            if (had_slash && make) {
                intact = extract_directory(*member, pending);
            }
            intact = tar_extract_regular_file(*member, make && !had_slash) && intact;
            if (make && intact) {
                known->remember_that_of(member->name);
            }
            return intact;
        case TAR_DIRECTORY:
            return make ? extract_directory(*member, pending) : intact;
        case TAR_HARD_LINK:
            return make ? tar_extract_hard_link(*member) : intact;
        case TAR_SYMLINK:
            return make ? tar_extract_symlink(*member) : intact;
        case TAR_CHARACTER_DEVICE:
        case TAR_BLOCK_DEVICE:
        case TAR_FIFO:
            return make ? tar_extract_special(*member) : intact;
        default:
            return UNKNOWN_TYPE;
    }
}

}  // namespace

int read_tar_file(int fd, int extract, char** patterns) {
    HeaderAhead ahead = {};
    PendingDirectories pending;
    KnownDirectory known;
    bool failed = false;     // a member did: the result tells when the archive ends
    bool skip_next = false;  // the next member's name or link name was too long
    for (;;) {
        ustar_header header;
        const int got = read_header(fd, &ahead, &header);
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
        member.ahead = &ahead;
        member.has_parent = false;
        if (!read_tar_header(header, &member)) {
            LOG_M("Bad tar header, skipping");
            failed = true;
            continue;
        }
        if (member.name[0] == '\0') {
            continue;
        }
        int taken;
        const bool is_long = member.typeflag == TAR_LONG_LINK || member.typeflag == TAR_LONG_NAME;
        if (is_long || skip_next) {
            if (!is_long) {
                LOG_M("%s: Long name or link name, skipping", member.name);
            }
            skip_next = is_long;
            taken = tar_extract_regular_file(member, 0);
        } else if (!is_selected(member, patterns)) {
            taken = is_regular(member) ? tar_extract_regular_file(member, 0) : 1;
        } else {
            taken = take_member(&member, extract, &known, &pending);
        }
        if (taken == UNKNOWN_TYPE) {
            LOG_M("Unknown file type '%c' in tar file", member.typeflag);
            return 0;
        }
        if (taken == 0) {
            failed = true;
        }
    }
}
