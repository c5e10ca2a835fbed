// The output directory and the files in it.
#pragma once

#include <sys/types.h>

#define DMD_LOG_DIR "/data/kvdx_logs/dmd_log"

// Buffer sizes in bytes: a path, and a command line.
constexpr int PATH_SIZE = 256;
constexpr int COMMAND_SIZE = 768;

// Creates DMD_LOG_DIR and each missing directory above it, mode 0775. 0, or -1 after a message when one could
// not be created.
int mkdir_parent();

// As open, but never waits, and refuses a FIFO (-1, errno ENXIO): its reader could block the daemon or, by
// going away, end it. The commands that the daemon runs do not inherit the file.
int open_without_waiting(const char* path, int flags, mode_t mode);

// Opens a file with mode 0644 whatever the umask is. The descriptor, which the caller owns, or -1 after a
// message, errno telling why; -1 also for a null path.
int open_output_file(const char* path, int flags);
