// Naming, building and compressing a dump archive.
#pragma once

#include <cstddef>

#include "output/error_info.h"

// Fills `path` (`size` bytes) with a dump's path up to its extension: the error number and the time of day.
void format_dump_stem(char* path, size_t size, const dmd_error_info& info);

// Splits an archive command in place and runs the archive tool on its words. Messages carry `name`. Returns
// the tool's result (0 when members were left out, 1 when all were packed), or a negative number.
int run_archive_command(const char* name, char* command);

// Compresses the file at `path` with the system's gzip, which replaces it by `path` with ".gz". Returns the
// command's status.
int compress_file(const char* path);

// Makes a compressed dump readable for all, whatever mode gzip gave it. Messages carry `name`.
void set_dump_mode(const char* name, const char* gz_path);
