// The dump operations that most clients carry, and the routine behind every dump that is nothing but reading
// the client's error text and reporting it.
#pragma once

#include "clients/client.h"

// Reads the client's pending error text and reports it with the extra files (space-separated paths, may be
// null) in the given output mode, all under the client's lock. Messages carry `name`. Returns 0, also when
// nothing could be read, or -1 on a null argument or no memory.
int log_collection_action(const char* name, dmd_client* client, int error_no, const char* RT_switch,
                          const char* extra_files, int mode);

// The generic dump operation: the error text alone. 0, or -1.
int dsm_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// The generic force-dump operation: makes the driver produce a text for the error number, then reports it.
// 0, -1, or the driver's result when it refused.
int dsm_force_dump_error(dmd_client* client, int error_no, const char* RT_switch);
