// Standalone dumps: data or files that a client action saves as a compressed dump of their own.
#pragma once

#include "output/error_info.h"

// What dmd_compress_output is given.
constexpr int DUMP_PATHS = 0;  // terminated text: space-separated paths to pack into a ".tar" archive
constexpr int DUMP_BYTES = 1;  // the dump itself, stored as a ".txt" file

// Makes one compressed dump of `buf` (`len` bytes for DUMP_BYTES, not used for DUMP_PATHS) and announces it;
// on a commercial build only the retention pass runs. Returns -1 when buf or info is null; the archive tool's
// result (0 or more) when it has packed the paths, or a negative number when it could not; otherwise the
// result of the retention pass. Takes the compress lock: two dumps are made one after the other, beside the
// record files. Dumps are named after the error number and the second of info->time: of two with the same
// name the later is lost.
int dmd_compress_output(const void* buf, int len, dmd_error_info* info, int type);
