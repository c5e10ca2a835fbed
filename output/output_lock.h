// The lock of the record files. dmd_direct_output holds it throughout. It guards the state that is
// kept between calls, and the error history.
#pragma once

#include "platform/mutex.h"

inline Mutex output_lock;
