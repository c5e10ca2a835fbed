// User and group names from the phone's text files, and the directory part of a path.
#pragma once

#include <grp.h>
#include <pwd.h>

#include "platform/mutex.h"

// getpwuid(uid) and getgrgid(gid) are declared by the headers above, but defined here, over "/etc/passwd" and
// "/etc/group" alone: the first entry with that id, or null when there is none or the file cannot be read.

// The lookup lock. Each kind of lookup returns static storage that the next call overwrites: whoever calls
// one while another thread may holds this from the call until the result is copied. (It stands on nothing
// that the compiler could check, because the standard declarations leave no room for it.)
extern Mutex lookup_mutex;

// The next well-formed user entry from the current offset of `fd`, which then stands at the next line, or
// null at end of file, on a read or seek error. Lines of more than 255 characters are skipped.
extern "C" struct passwd* __getpwent(int fd);

// The same for group entries, whose lines may have 32766 characters; null also without memory.
struct group* read_group_entry(int fd);

// The directory part of `path`, cut in place, or the constant text "." when it has none. (Declared here, as
// the C libraries do not agree on its argument's type.)
extern "C" char* dirname(char* path) noexcept;
