// Reading ustar archives.
#pragma once

// Reads the archive at the current offset of `fd` to its end, waiting for data where fd waits; fd stays open.
// With extract 1 the members are made under the current directory, in the place of what has their names; only
// directories stay, with what is in them. With 0 the members are read through. `patterns` is a
// null-terminated list of shell patterns, or null for all members: a pattern that matches a directory also
// selects what lies below it.
//
// Returns 1 when the end of the archive was reached and no member failed; 0 when a member failed, when the
// archive has no end, or when a member's type is unknown, which ends the run; -1 when reading
// failed between two members and none had failed before. The log tells what was wrong, but not why a file
// could not be made. Owners, modes and times that cannot be set do not make a member fail.
//
// While one run extracts, nothing else may change the current directory or what is in it.
int read_tar_file(int fd, int extract, char** patterns);
