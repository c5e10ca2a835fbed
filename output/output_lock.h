// The lock of the record files. dmd_direct_output holds it throughout. It guards what that keeps between
// calls, the error history included.
#pragma once

#include "platform/mutex.h"

inline Mutex output_lock;
