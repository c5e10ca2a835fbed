// The one door through which servers and triggers run a client's operations.
#pragma once

#include "clients/client.h"

// Run the operation in a slot of the client's dump or force-dump operations. Return its result, or 0 when
// there is nothing to run: a null client, an empty slot, or a slot outside 0 to SLOT_COUNT - 1. No lock is
// held or taken here; call without the client's lock.
int dmd_dump_error(dmd_client* client, int error_no, int slot, const char* RT_switch);
int dmd_force_dump_error(dmd_client* client, int error_no, int slot, const char* RT_switch);

// Runs the client's clear operation. Returns its result, or 0 when there is nothing to run.
int dmd_clear_error(dmd_client* client, int argument);
