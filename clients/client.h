// The rows of the built-in client table and the runtime records of bound clients.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/mutex.h"

struct dmd_client;

// Number of dump slots, and of force-dump slots, of a client.
constexpr int SLOT_COUNT = 10;

// The operations of a client. Init: 0 when the client was bound. Clear: 0, or -1. Dump and force-dump: the
// error number and the running test switch ("on" or "off"); 0 on success or when there was nothing to do, -1
// on a bad argument or no memory, otherwise what the operation's own header says. Call them without the
// client's lock: those that use its descriptor take it.
using client_init_operation = int (*)(dmd_client* client);
using client_release_operation = int (*)(dmd_client* client);
using client_clear_operation = int (*)(dmd_client* client, int argument);
using client_dump_operation = int (*)(dmd_client* client, int error_no, const char* RT_switch);

// One row of the built-in table.
struct dmd_client_info {
    char name[32];         // the name that the driver knows, at most 31 characters of text
    uint32_t type;         // carried into the record and logged
    uint32_t buffer_size;  // bytes read from the driver at each dump or clear
    uint32_t op_count;     // slots taken over into the record, at most SLOT_COUNT
    client_init_operation init;
    client_release_operation release;
    client_clear_operation clear;
    client_dump_operation dump[SLOT_COUNT];        // null where empty
    client_dump_operation force_dump[SLOT_COUNT];  // null where empty
};

// Guards the names of all clients. Held only while they are copied, so a thread that wants a name never waits
// until a dump ends.
inline Mutex client_names_lock;

// One bound client. Never freed once it is in the registry; only what the locks guard changes after that.
struct dmd_client {
    dmd_client* next;             // guarded by the registry's lock
    const dmd_client_info* info;  // the row; the client's name is the row's
    char device_name[32] GUARDED_BY(client_names_lock);
    char ic_name[4] GUARDED_BY(client_names_lock);      // no terminator when it fills the field
    char module_name[4] GUARDED_BY(client_names_lock);  // no terminator when it fills the field
    int index;  // position in binding order; guarded by the registry's lock
    uint32_t type;
    int fd GUARDED_BY(mutex);  // bound to this client, open for the life of the process
    uint32_t buffer_size;
    Mutex mutex;  // serialises all use of fd; held while a dump is reported
    client_init_operation init;
    client_release_operation release;
    client_clear_operation clear;
    client_dump_operation dump[SLOT_COUNT];
    client_dump_operation force_dump[SLOT_COUNT];
    std::atomic<unsigned int> texts_read{0};  // handed over by the driver so far; wraps around
};
