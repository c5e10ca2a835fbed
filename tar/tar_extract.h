// Making the members of an archive under the current directory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "tar/ustar_header.h"

// Room for a member's name: the header's prefix, "/", its name and a terminator.
constexpr size_t MEMBER_NAME_SIZE = sizeof(ustar_header::prefix) + 1 + sizeof(ustar_header::name) + 1;

// One member of an archive that is being read, as its header describes it.
struct TarMember {
    int fd;                       // the archive, read up to the member's data; not owned
    char name[MEMBER_NAME_SIZE];  // without leading "/"
    uint16_t mode;                // with the bits of the file's type, where the archive has them
    uint32_t uid;
    uint32_t gid;
    int64_t size;  // bytes of data; a size cut to 32 bits would lose the place of all members behind it
    time_t mtime;  // seconds since 1970
    char typeflag;
    char linkname[sizeof(ustar_header::linkname) + 1];
    uint32_t devmajor;
    uint32_t devminor;
};

// Members are made under the current directory, and no call here reaches beyond it. What is checked could
// change before it is relied on: nothing else may make or replace anything in the directory meanwhile.

// Whether what is made at `name`, a path without a leading "/", could lie elsewhere: ".." is in it, or a link
// stands on its way, as archives can bring them.
bool leads_out(const char* name);

// Whether the member is a hard link to what stands in its place, as when a path was archived twice.
bool is_link_to_itself(const TarMember& member);

// The operations below that make something expect a name that does not lead out. Where directories on its way
// are missing, they are made.

// Reads past the member's data and, with `extract`, makes the file where nothing has its name. Returns 1, or
// 0 when the data ended early or the file could not be made whole. Unless the archive ends or cannot be read,
// it is read up to the next header in any case.
int tar_extract_regular_file(const TarMember& member, int extract);

// Make the link or the node, where nothing has its name. Return 1, or 0 with a message. A hard link's target
// is looked up below the current directory, like the members. The mode says which node; where it names none,
// nothing is made, with a message.
int tar_extract_hard_link(const TarMember& member);
int tar_extract_symlink(const TarMember& member);
int tar_extract_special(const TarMember& member);

// For make_directory: also makes missing directories above the path, and takes a directory that exists.
constexpr int MAKE_PARENTS = 4;

// A mode for make_directory: as the umask leaves it.
constexpr long MODE_AS_CREATED = -1;

// Makes a directory with the permissions `mode`. Returns 0 on success, and with MAKE_PARENTS also when the
// path exists, whatever it is, or its status cannot be read; -1 with a message on failure.
int make_directory(const char* path, long mode, int flags);

// Sets the owner, the mode and the times of what was made: accessed now, modified at the member's time. An
// owner that may not be set is left as it is. A link gets the owner only. Returns the result of the last step
// taken, 0 on success.
int apply_member_attributes(const TarMember& member);
