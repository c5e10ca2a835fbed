// Reading ustar archives.
#include "tar/tar_reader.h"

#include <fnmatch.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>

#include "platform/io.h"
#include "platform/log.h"
#include "platform/text.h"
#include "tar/directory_walker.h"
#include "tar/tar_extract.h"
#include "tar/ustar_header.h"

namespace {

// Set once the message about leading "/" was logged, for all archives of the process.
std::atomic_flag leading_slash_reported = ATOMIC_FLAG_INIT;

template <size_t N>
int64_t number(const char (&field)[N]) {
    return parse_number_field(field, N);
}

// Puts a member's name together as it stands in the archive. A long one is split at a "/"; older formats have
// other things in the first part's place and tell by the magic.
void read_name(const ustar_header& header, char (&name)[MEMBER_NAME_SIZE]) {
    size_t length = 0;
    if (header.prefix[0] != '\0' && memcmp(header.magic, "ustar", sizeof header.magic) == 0) {
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

bool has_known_type(const TarMember& member) {
    return is_regular(member) || (member.typeflag >= TAR_HARD_LINK && member.typeflag <= TAR_FIFO);
}

// Older formats tell a directory by the "/" behind its name alone. The "/" goes: it would lead the calls on
// the name through a link.
void settle_directory(TarMember* member) {
    if (is_regular(*member) && ends_with_slash(member->name) != nullptr) {
        member->typeflag = TAR_DIRECTORY;
    }
    if (member->typeflag == TAR_DIRECTORY) {
        while (ends_with_slash(member->name) != nullptr) {
            member->name[strlen(member->name) - 1] = '\0';
        }
    }
}

// What a run returns at the end of its archive.
int result_at_end(int result, bool failed) {
    if (failed) {
        LOG_M_AS("read_tar_file", "Error exit delayed from previous errors");
        return 0;
    }
    return result;
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
        if (got <= 0) {
            LOG_M("No end of archive found: %s", got == 0 ? "end of file" : strerror(errno));
            return result_at_end(got, failed);
        }
        TarMember member;
        member.fd = fd;
        const bool intact = read_tar_header(header, &member);
        if (member.name[0] == '\0') {
            if (!intact) {
                return result_at_end(1, failed);  // a block of zeros
            }
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
            skip_data(member);
            continue;
        }
        settle_directory(&member);
        const bool whole = extract ? extract_member(member, &pending) : skip_data(member);
        if (!has_known_type(member)) {
            LOG_M("Unknown file type '%c' in tar file", member.typeflag);
            return 0;
        }
        failed |= !whole;
    }
}
