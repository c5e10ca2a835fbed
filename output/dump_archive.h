// Naming, packing and compressing a dump: what the record files' archives and the standalone dumps have in
// common. Messages carry `operation`, the name of the one that makes the dump.
#pragma once

#include <cstddef>
#include <cstdint>

#include "output/error_info.h"
#include "output/output_dir.h"

// Most words of an archive command; its argument list holds one null entry more.
constexpr int MAX_COMMAND_WORDS = 31;

// Fills `path` (`size` bytes) with a dump's path up to its extension: the error number and the time of day.
void format_dump_stem(char* path, size_t size, const dmd_error_info& info);

// Appends a space-separated list of paths to an archive command. Paths that do not fit are left out whole,
// after a message: a cut path would name something else.
void append_paths(const char* operation, char (&command)[COMMAND_SIZE], const char* paths);

// Splits text in place at blanks and line ends into argv, which has room for MAX_COMMAND_WORDS + 1 entries
// that the caller zeroed. 0, or -1 after a message when there are fewer than three words or more than
// MAX_COMMAND_WORDS.
int parse_command(char* text, int* argc, char** argv);

// Splits an archive command in place and runs the archive tool on its words. Returns the tool's result (0
// when members were left out, 1 when all were packed), or a negative number.
int run_archive_command(const char* operation, char* command);

// Has the system's gzip replace the file at `path` by a compressed one with ".gz" behind its name. Leaves no
// part of a ".gz". A dump of that name from before `time` (seconds since the epoch) gives way. Returns the
// command's status, after a message when it is not 0; errno tells why when it is -1.
int gzip_file(const char* path, int32_t time);

// Makes a compressed dump readable for all, whatever mode gzip gave it, and flushes it and its name. Failures
// have messages.
void finish_dump(const char* operation, const char* path);
