// Reading ustar archives.
#include "tar/tar_reader.h"

#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"
#include "tar/directory_walker.h"
#include "tar/tar_extract.h"
#include "tar/ustar_header.h"

namespace {

// Set once the message about leading "/" was logged, for all archives of the process.
std::atomic_flag leading_slash_reported = ATOMIC_FLAG_INIT;

// Directories that were made and still lack their attributes: making their contents changes their times, and
// a read-only one would take none. They are set when the run ends, however it ends, contents first.
class PendingDirectories {
  public:
    PendingDirectories() = default;
    PendingDirectories(const PendingDirectories&) = delete;
    PendingDirectories& operator=(const PendingDirectories&) = delete;
    ~PendingDirectories() {
        while (longest_ != nullptr) {
            Entry* const entry = longest_;
            apply_member_attributes(entry->member);
            longest_ = entry->next;
            free(entry);
        }
    }

    // Without memory the attributes are set at once. Of two members with one name the later one tells.
    void add(const TarMember& member) {
        const size_t length = strlen(member.name);
        Entry** at = &longest_;
        while (*at != nullptr && (*at)->length >= length) {
            at = &(*at)->next;
        }
        Entry* const entry = allocate<Entry>().release();
        if (entry == nullptr) {
            apply_member_attributes(member);
            return;
        }
        *entry = {member, length, *at};
        *at = entry;
    }

  private:
    struct Entry {
        TarMember member;
        size_t length;  // of its name
        Entry* next;
    };

    Entry* longest_ = nullptr;  // by falling length of the names, so that contents come first
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

// Reads what a header says of its member. False when its checksum is wrong.
bool read_tar_header(const ustar_header& header, TarMember* member) {
    char name[MEMBER_NAME_SIZE];
    read_name(header, name);
    const size_t slashes = strspn(name, "/");
    copy_text(member->name, name + slashes);
    if (slashes > 0 && !leading_slash_reported.test_and_set()) {
        LOG_M("Removing leading '/' from member names");
    }
    member->mode = static_cast<uint16_t>(number(header.mode));
    member->uid = static_cast<uint32_t>(number(header.uid));
    member->gid = static_cast<uint32_t>(number(header.gid));
    member->size = number(header.size);
    member->mtime = static_cast<time_t>(std::clamp<int64_t>(
        number(header.mtime), std::numeric_limits<time_t>::min(), std::numeric_limits<time_t>::max()));
    member->typeflag = header.typeflag;
    copy_text(member->linkname, header.linkname);
    member->devmajor = static_cast<uint32_t>(number(header.devmajor));
    member->devminor = static_cast<uint32_t>(number(header.devminor));
    return number(header.chksum) == ustar_checksum(header);
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
    // Below a file nothing was made: by the end a link may be in the file's place, and lead elsewhere.
    struct stat status;
    if (lstat(member.name, &status) == 0) {
        pending->add(member);
    }
    return true;
}

bool is_regular(const TarMember& member) {
    return member.typeflag == TAR_REGULAR || member.typeflag == TAR_REGULAR_OLD;
}

// What became of a member.
enum class Taken { WHOLE, FAILED, UNKNOWN_TYPE };

// Reads past a selected member's data and, with `extract`, makes it where it may be made.
Taken take_member(TarMember* member, int extract, PendingDirectories* pending) {
    if (is_regular(*member) && ends_with_slash(member->name) != nullptr) {
        member->typeflag = TAR_DIRECTORY;  // of an older format
    }
    if (member->typeflag == TAR_DIRECTORY) {
        // A "/" at the end would lead the calls on the name through a link.
        for (char* last = strrchr(member->name, '\0') - 1; *last == '/'; last--) {
            *last = '\0';
        }
    }
    const bool refused = extract && leads_out(member->name);
    if (refused) {
        LOG_M_AS("read_tar_file", "%s: Not extracted: leads out of the directory", member->name);
    }
    const bool make = extract && !refused;
    const bool stays = make && is_link_to_itself(*member);
    if (make && !stays) {
        unlink(member->name);
    }
    bool whole = true;
    switch (member->typeflag) {
        case TAR_REGULAR:
        case TAR_REGULAR_OLD:
            whole = tar_extract_regular_file(*member, make);
            break;
        case TAR_DIRECTORY:
            whole = !make || extract_directory(*member, pending);
            break;
        case TAR_HARD_LINK:
            whole = !make || stays || tar_extract_hard_link(*member);
            break;
        case TAR_SYMLINK:
            whole = !make || tar_extract_symlink(*member);
            break;
        case TAR_CHARACTER_DEVICE:
        case TAR_BLOCK_DEVICE:
        case TAR_FIFO:
            whole = !make || tar_extract_special(*member);
            break;
        default:
            return Taken::UNKNOWN_TYPE;
    }
    return whole && !refused ? Taken::WHOLE : Taken::FAILED;
}

}  // namespace

int read_tar_file(int fd, int extract, char** patterns) {
    PendingDirectories pending;
    bool failed = false;     // a member did: the result tells when the archive ends
    bool skip_next = false;  // the next member's name or link name was too long
    for (;;) {
        ustar_header header;
        const int got = read_fully(fd, &header, TAR_BLOCK_SIZE);
        if (got > 0 && got < TAR_BLOCK_SIZE) {
            LOG_M("Error reading tar file");
            return 0;
        }
        TarMember member;
        member.fd = fd;
        const bool intact = got > 0 && read_tar_header(header, &member);
        if (got <= 0 || (!intact && member.name[0] == '\0')) {
            if (got <= 0) {
                LOG_M("No end of archive found: %s", got == 0 ? "end of file" : strerror(errno));
            }
            if (failed) {
                LOG_M("Error exit delayed from previous errors");
                return 0;
            }
            return got > 0 ? 1 : got;
        }
        if (member.name[0] == '\0') {
            continue;
        }
        // No member has a negative size: a header with one is as damaged as one with a wrong checksum.
        if (!intact || member.size < 0) {
            LOG_M("Bad tar header, skipping");
            failed = true;
            continue;
        }
        const bool is_long = member.typeflag == TAR_LONG_LINK || member.typeflag == TAR_LONG_NAME;
        if (is_long || skip_next) {
            if (!is_long) {
                LOG_M("%s: Long name or link name, skipping", member.name);
            }
            skip_next = is_long;
            failed |= !tar_extract_regular_file(member, 0);
            continue;
        }
        if (!is_selected(member, patterns)) {
            if (is_regular(member)) {
                tar_extract_regular_file(member, 0);
            }
            continue;
        }
        const Taken taken = take_member(&member, extract, &pending);
        if (taken == Taken::UNKNOWN_TYPE) {
            LOG_M("Unknown file type '%c' in tar file", member.typeflag);
            return 0;
        }
        failed |= taken == Taken::FAILED;
    }
}
