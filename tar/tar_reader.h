// Reading ustar archives.
#pragma once

// Reads the archive at the current offset of `fd`, whose data may come in any pieces, to its end; fd stays
// open. With extract 1 the members are made under the current directory, in the place of what has their
// names; with 0 they are only read through. `patterns` is a null-terminated list of shell patterns, or null
// for all members: a pattern that matches a directory also selects what lies below it.
//
// Returns 1 when the end of the archive was reached and no member failed; 0 when a member failed or the rest
// of the archive cannot be read, with a message; -1 when reading failed between two members.
//
// Archives may be read on several threads at once, into one directory or not: all share the current one.
int read_tar_file(int fd, int extract, char** patterns);
