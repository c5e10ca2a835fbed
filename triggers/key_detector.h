// The key detector: on a debug build, combinations of the volume keys ask for dumps of the touch panel and of
// the display.
#pragma once

#include <cstdint>

#include "platform/mutex.h"

// Key events of one combination.
constexpr int KEY_SEQUENCE_LENGTH = 6;

struct key_entry {
    uint16_t code;   // Linux key code
    uint32_t time;   // when the event was read, the low word of dmd_key_time_ms; 0: the entry is free
    uint16_t value;  // 1 pressed, 0 released, 2 autorepeat
};

// The last key events, oldest first.
extern Mutex key_sequence_mutex;
extern key_entry key_sequence[KEY_SEQUENCE_LENGTH] GUARDED_BY(key_sequence_mutex);

// Finds the key devices and starts the thread that watches them for the life of the process. Called once,
// after the registry stands. 0, also on a commercial build, where keys are not watched; -1 when there is no
// key device or no memory; or the error code of the thread's creation.
int dmd_key_detect_sever_init();

// Opens the devices of /dev/input that report a volume key. Returns how many are watched now.
int dmd_get_key_device();

// Whether the device behind a descriptor reports a volume key.
bool dmd_is_key_device(int fd);

// Entry of the key thread; its argument is not used. Never returns.
void* dmd_key_event_detect_thread(void* argument);

// Waits for input and reads at most one event from each device. The last key event goes into the sequence; a
// complete sequence is acted on before this returns. Closes devices that have hung up or whose reads keep
// failing. 1 when there was a key event, else 0.
int dmd_key_ev_get();

// Acts on a full sequence, on the calling thread, and empties it.
void dmd_key_dispatch() REQUIRES(key_sequence_mutex);

// Runs the command of a combination.
void dmd_key_command_func(int combination_key);

// The monotonic clock in milliseconds.
uint64_t dmd_key_time_ms();
