// The one place where a dumped error becomes a bug report on disk.
#pragma once

#include "output/bug_head.h"
#include "output/error_info.h"
#include "output/output_lock.h"

// Output modes: which head a report gets, and what is archived with it on a debug build. Any other value: no
// head, and an archive of the record file alone.
constexpr int DMD_OUTPUT_SHORT = HEAD_SHORT;  // short head, no archive
constexpr int DMD_OUTPUT_FULL = HEAD_FULL;    // full head, archive with the Android logs and the extra files

// Appends a report of `len` bytes at `buf` to the current record file; then, on a debug build, packs and
// compresses it with `extra_files` (space-separated paths, may be null), and on a commercial build writes the
// once-a-day record for the upload service. Takes the output lock for the whole call; called with the
// reporting client's lock held. Returns -1 on a null buf or info, and 0 in every other case: failures are
// logged.
int dmd_direct_output(const void* buf, int len, dmd_error_info* info, const char* extra_files, int mode)
    EXCLUDES(output_lock);
