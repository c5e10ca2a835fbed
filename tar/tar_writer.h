// Writing ustar archives.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>

#include "tar/hard_links.h"
#include "tar/ustar_header.h"

// The names of a member's owners.
struct owner_names {
    bool known;
    uint32_t uid;
    uint32_t gid;
    char user[sizeof(ustar_header::uname)];
    char group[sizeof(ustar_header::gname)];
};

// One archive being written.
struct tb_info {
    int tar_fd;                  // the archive, open for writing; whoever opened it closes it
    struct stat archive_status;  // the archive's own status, right after it was opened
    HardLinkList hard_links;
    const hl_info* current_hard_link;  // the record that matched the member being written, or null
    int64_t size;                      // bytes written so far
    owner_names owners;                // of the last member: the next one's are mostly the same
    bool write_failed;                 // the archive did not take all bytes once, and a message said so
};

// Writes an archive of `operands`, a null-terminated list of paths, each with everything below it. Returns 1
// when the archive is complete, 0 when a member or the end of the archive could not be written as it should
// be (what is in the archive is readable to its end all the same), -14 when the list is empty, -13 when the
// archive could not be opened, -1 when its status could not be read.
//
// Archives may be written on several threads at once. Call it without lookup_mutex.
int write_tar_file(const char* archive_path, char** operands);

// Writes the member for one path, whose lstat status the caller has read. Returns true when it was written or
// skipped (a socket, the archive itself, a path of more than 99 characters or of slashes only), false when it
// failed: then either nothing of it is in the archive or, where its data ended early, its recorded size was
// filled with zero bytes.
int write_file_to_tarball(const char* path, const struct stat* status, tb_info* info);
