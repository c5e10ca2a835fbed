// The output directory and the files in it.
#pragma once

#include <sys/types.h>

#include "platform/file_time.h"

#define DMD_LOG_DIR "/data/kvdx_logs/dmd_log"

// Buffer sizes in bytes: a path, and a command line.
constexpr int PATH_SIZE = 256;
constexpr int COMMAND_SIZE = 768;

// Creates DMD_LOG_DIR and each missing directory above it, mode 0775. 0, or -1 after a message when one could
// not be created.
int mkdir_parent();

// Removes what stands at `path`, after a message, unless it is a directory, or a regular file of the daemon's
// own without a second name: through a link the daemon or a command of its own would write elsewhere. With
// `keep_data`, whose file it is does not matter. Whether the place is clear; if not, errno tells why.
bool clear_place(const char* path, bool keep_data = false);

// Opens a file with mode 0644 whatever the umask is, after clear_place; without O_TRUNC its data is kept. The
// descriptor, which the caller owns, or -1 after a message, errno telling why; -1 also for a null path.
int open_output_file(const char* path, int flags);

// Sets when the file at `path` was modified; of a link, the link's own time. A failure has a message.
void set_modified_time(const char* path, const file_time& time);

// Writes all bytes to `fd`, or logs that `part` of the file at `path` is cut or lost. Returns the bytes
// written, 0 when it was not all.
int write_part(int fd, const char* path, const char* part, const void* bytes, int count);

// Logs that `part` of the file at `path` is cut or lost, and why: the reason is in errno.
void tell_lost(const char* path, const char* part);

// Flushes what was written to `fd`, the file at `path`. A failure, also to open it, has a message.
void sync_file(int fd, const char* path);

// Flushes the names in DMD_LOG_DIR. A failure has a message.
void sync_output_dir();
