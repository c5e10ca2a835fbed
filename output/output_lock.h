// The lock of the record files: it serialises dmd_direct_output as a whole and guards what that keeps between
// calls, the error history among it.
#pragma once

#include "platform/mutex.h"

inline Mutex output_lock;
