// The registry of bound clients. Its lock is held only for a walk, never while an operation runs; a record
// that a lookup returned stays valid for the life of the process.
#pragma once

#include "clients/client.h"

// Binds every row of the built-in table and links what could be bound into the registry. Always 0: a row that
// could not be bound is left out. Called once, before any other thread exists.
int dmd_client_init();

// Number of clients in the registry. Any thread.
int get_client_count();

// The client at a position in binding order, or null when there is none. Any thread.
dmd_client* get_client_by_index(int index);

// The client whose row has that name (any case, over at most 32 characters), or null, also for a null name.
// Any thread.
dmd_client* get_client_by_name(const char* name);
