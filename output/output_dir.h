// The output directory, the files in it and the commands that are run on them.
#pragma once

#include <sys/types.h>

#define DMD_LOG_DIR "/data/kvdx_logs/dmd_log"

// Buffer sizes in bytes: a path, and a command line.
constexpr int PATH_SIZE = 256;
constexpr int COMMAND_SIZE = 768;

// What separates the words of an archive command.
constexpr char WORD_SEPARATORS[] = "\t \r\n";

// Most words of an archive command; its argument list holds one null entry more.
constexpr int MAX_COMMAND_WORDS = 31;

// Creates DMD_LOG_DIR and each missing directory above it, mode 0775. 0, or -1 after a message when one could
// not be created.
int mkdir_parent();

// As open, but at once, and never a FIFO (-1, errno ENXIO): its reader could keep the daemon waiting and,
// going away, end it. The commands that the daemon runs do not inherit the file.
int open_at_once(const char* path, int flags, mode_t mode);

// Opens a file with mode 0644 whatever the umask is. The descriptor, which the caller owns, or -1 after a
// message, errno telling why; -1 also for a null path.
int open_output_file(const char* path, int flags);

// As run_command, after a message that shows the command.
int secure_system(const char* command);

// Splits text in place at blanks and line ends into argv, which has room for MAX_COMMAND_WORDS + 1 entries
// that the caller zeroed. 0, or -1 after a message when there are fewer than three words or more than
// MAX_COMMAND_WORDS.
int parse_command(char* text, int* argc, char** argv);
