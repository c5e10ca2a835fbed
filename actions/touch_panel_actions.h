// The debug cycle of the touch panel: a tester arms it, collects once, and switches it off again. Its state
// is shared by both operations and all threads; of two threads that want the same step, one takes it.
#pragma once

#include "clients/client.h"

// First call: switches the touch aids on. Second call: saves what the panel, the input service and the power
// supplies say as one compressed dump, having switched the touch logs on, and vibrates. Returns the status of
// the last command, negative when it could not be run; -1 in every other state; and -1 on a null argument and
// on a commercial build, after which the cycle stands as if something had been collected.
int tp_force_dump_error(dmd_client* client, int error_no, const char* RT_switch);

// Once something was collected: switches logs and touch aids off. Returns the status of the last command, or
// -1 on a null argument and in every other state.
int tp_debug_disable(dmd_client* client, int error_no, const char* RT_switch);
