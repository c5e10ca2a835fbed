// Naming, building, compressing and publishing a dump archive: what the record files' archives and the
// standalone dumps have in common. Messages carry `name`.
#pragma once

#include <cstddef>

#include "output/error_info.h"
#include "output/output_dir.h"

// Fills `path` (`size` bytes) with a dump's path up to its extension: the error number and the time of day.
void format_dump_stem(char* path, size_t size, const dmd_error_info& info);

// Appends a space-separated list of paths to an archive command. Paths that do not fit are left out whole,
// after a message: a cut path would name something else.
void append_paths(const char* name, char (&command)[COMMAND_SIZE], const char* paths);

// Splits an archive command in place and runs the archive tool on its words. Returns the tool's result (0
// when members were left out, 1 when all were packed), or a negative number.
int run_archive_command(const char* name, char* command);

// Compresses the file at `path` with the system's gzip, which replaces it by `path` with ".gz", and appends
// that to `path`, also when the command failed. Leaves no part of a ".gz". Returns the command's status;
// errno tells why when that is -1.
int compress_dump(char (&path)[PATH_SIZE]);

// Makes a compressed dump readable for all, whatever mode gzip gave it, and announces it to the upload
// service.
void publish_dump(const char* name, const char* gz_path, const dmd_error_info* info);
