// The dump operations that most clients carry, and the routine behind every dump that is nothing but reading
// the client's error text and reporting it.
#pragma once

#include <cstddef>

#include "clients/client.h"

// Further steps of a dump; null where it has none.
struct collection_steps {
    // Runs with the dump's arguments once the buffer is there, before the client's lock is taken. Its result
    // is not used.
    client_dump_operation prepare;
    // Fills `list`, `size` bytes, with the list of extra files. Runs once a text has been read, with the
    // client's lock held.
    void (*list_extra_files)(char* list, size_t size);
    // Runs once the client's lock is released, whether or not a text was read.
    void (*finish)();
};

// Reads the client's pending error text and reports it with the extra files (space-separated paths, may be
// null) in the given output mode, all under the client's lock. Messages carry `operation`. Returns 0, also
// when nothing could be read, or -1 on a null argument or no memory; no step runs then.
int log_collection_action(const char* operation, dmd_client* client, int error_no, const char* RT_switch,
                          const char* extra_files, int mode, const collection_steps& steps = {});

// The generic dump operation: the error text alone. 0, or -1.
int dsm_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// The generic force-dump operation: makes the driver produce a text for the error number, then reports it.
// 0, -1, or the driver's result when it refused.
int dsm_force_dump_error(dmd_client* client, int error_no, const char* RT_switch);
