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
    int fd;                       // the archive, read up to the member's data; whoever opened it closes it
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

// Regular members alone have data, whatever size the others name.
bool is_regular(const TarMember& member);

// Reads past the member's data, if it has any. False when the archive ended within it, with a message.
bool skip_data(const TarMember& member);

// Directories that were made and still lack their attributes: making their contents changes their times, and
// a read-only one would take none. They are set when the run ends, however it ends, contents first.
class PendingDirectories {
  public:
    PendingDirectories() = default;
    PendingDirectories(const PendingDirectories&) = delete;
    PendingDirectories& operator=(const PendingDirectories&) = delete;
    ~PendingDirectories();

    // Without memory the attributes are set at once. Of two members with one name the later one tells.
    void add(const TarMember& member);

  private:
    struct Entry {
        TarMember member;
        Entry* next;
    };

    Entry* first_ = nullptr;  // by falling length of the names: contents have longer ones
};

// Makes a member below the current directory, in the place of what has its name; only directories stay, with
// what is in them. Missing directories on its way are made. Its data is read up to the next header in any
// case, unless the archive ends or cannot be read. False when it was not made as the archive has it; the log
// tells why, but for a file that could not be made.
//
// Nothing outside the current directory is touched: a name with "..", or with a link on its way, is refused.
// What was checked could change before it is relied on, so nothing else may change the directory meanwhile.
bool extract_member(const TarMember& member, PendingDirectories* pending);

// The steps of extract_member, for names that stay inside. They return 1, or 0 when it failed.

// With `extract`, makes the file, in the place of what has its name. Reads past the data.
int tar_extract_regular_file(const TarMember& member, int extract);

// Make the link or the node where nothing has its name. A hard link's target is looked up below the current
// directory, like the members. The mode says which node; where it names none, nothing is made.
int tar_extract_hard_link(const TarMember& member);
int tar_extract_symlink(const TarMember& member);
int tar_extract_special(const TarMember& member);

// For make_directory: also makes missing directories above the path, and takes a directory that exists.
constexpr int MAKE_PARENTS = 4;

// A mode for make_directory: as the umask leaves it.
constexpr long MODE_AS_CREATED = -1;

// Makes a directory, whose path is no longer than a member's name, with the permissions `mode`. Returns 0 on
// success, and with MAKE_PARENTS also when the path exists, whatever it is, or its status cannot be read; -1
// with a message on failure.
int make_directory(const char* path, long mode, int flags);

// Sets the owner, the mode and the times of what was made: accessed now, modified at the member's time. Where
// the owner may not be set, the rest is. A link gets the owner only. Returns the result of the last step
// taken, 0 on success.
int apply_member_attributes(const TarMember& member);
