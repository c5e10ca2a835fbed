// Making the members of an archive under the current directory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "tar/ustar_header.h"

// Room for a member's name: the header's prefix, "/", its name and a terminator.
constexpr size_t MEMBER_NAME_SIZE = sizeof(ustar_header::prefix) + 1 + sizeof(ustar_header::name) + 1;

// What was read of the next header together with the data before it: the one call does for both, and a header
// follows in any case.
struct HeaderAhead {
    ustar_header block;
    int size;  // bytes of it
};

// One member of an archive that is being read, as its header describes it.
struct TarMember {
    int fd;                       // the archive, read up to the member's data; not owned
    HeaderAhead* ahead;           // empty until the data is read; not owned
    char name[MEMBER_NAME_SIZE];  // without leading "/"
    uint16_t mode;                // with the bits of the file's type, where the archive has them
    uint32_t uid;
    uint32_t gid;
    uint64_t size;  // bytes of data; a size cut to 32 bits would lose the place of all members behind it
    time_t mtime;   // seconds since 1970
    char typeflag;
    char linkname[sizeof(ustar_header::linkname) + 1];
    uint32_t devmajor;
    uint32_t devminor;
    bool has_parent;  // the directory that it lies in is known to be there and to be one
};

// Members are made under the current directory, and no call here reaches beyond it. What is checked could
// change before it is relied on: nothing else may make or replace anything in the directory meanwhile.

// Why nothing may be made at `name`, at most MEMBER_NAME_SIZE - 1 characters without a leading "/", or null
// when something may: no ".." is in it, and what exists of its directories is real, as is known with
// `has_parent`. A link on the way could lead out of the current directory, and archives can bring such links.
// The text is valid until this thread's next call of strerror.
const char* path_fault(const char* name, bool has_parent);

// The operations below that make something expect a name without path_fault and without a trailing "/". Where
// directories on its way are missing, they are made.

// Reads past the member's data, and of the next header what comes with it, and, with `extract`, makes the
// file in the place of what has its name. Returns 1, or 0 when the data ended early or the file could not be
// made whole. Unless the archive ends or cannot be read, it is read up to the next header in any case.
int tar_extract_regular_file(const TarMember& member, int extract);

// Makes the link in the place of what has its name. Its target is looked up below the current directory, like
// the members; where both are one file already, it stays. Returns 1, or 0 with a message.
int tar_extract_hard_link(const TarMember& member);

// Make the link or the node, where nothing has its name. Return 1, or 0 with a message. The mode says which
// node; where it names none, nothing is made, a message says so and the result is 1.
int tar_extract_symlink(const TarMember& member);
int tar_extract_special(const TarMember& member);

// For make_directory: also makes missing directories above the path, and takes a directory that exists.
constexpr int MAKE_PARENTS = 4;

// Modes for make_directory: as the umask leaves it; the same with the owner's rights to write and search.
constexpr long MODE_AS_CREATED = -1;
constexpr long MODE_OF_PARENTS = -2;

// Makes a directory with the permissions `mode`. Returns 0 on success, and with MAKE_PARENTS also when the
// path exists, whatever it is, or its status cannot be read; -1 with a message on failure.
int make_directory(const char* path, long mode, int flags);

// Sets the owner, the mode and the times of what was made: accessed now, modified at the member's time. An
// owner that may not be set is left as it is. A link gets the owner only. Returns the result of the last step
// taken, 0 on success.
int apply_member_attributes(const TarMember& member);
