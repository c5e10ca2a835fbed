// The phone's input devices as the kernel would have them: which keys each has, and the events that its open
// files have not read yet. Pure state, part of the driver's, see driver.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "emulator/driver.h"

namespace phone {

// Events that wait in one open file: far more than a program that reads at all leaves there.
constexpr size_t KEY_EVENTS_MAX = 64 * 1024;

// Brings all input devices to their state at boot: plugged in, with the keys that they came with and no event
// that waits. Open files stay open.
void key_devices_reset(Driver* driver);

// The input device of that name, or null.
KeyDevice* key_device(Driver* driver, std::string_view name);

// The requests of programs. Each returns 0 or a positive result, or a negative errno.
int key_open(Driver* driver, KeyDevice* device, OpenFile** file);

// *bits becomes what the request copies to the program.
int key_ioctl(OpenFile* file, uint32_t code, std::string* bits);

// *events becomes as many whole events as `size` bytes hold.
int key_read(OpenFile* file, size_t size, std::string* events);

// The poll events that hold for `file` now.
unsigned key_poll(const OpenFile& file);

// Open files of the device.
size_t key_files(const Driver& driver, const KeyDevice& device);

// Events that wait in all of them together, but for the marks that end each report.
size_t key_events(const Driver& driver, const KeyDevice& device);

// The device reports a key, to all its open files or, when one of them is full, to none. False when one is.
bool key_report(Driver* driver, const KeyDevice& device, uint16_t code, int32_t value);

// The device goes away until the next reset.
void key_unplug(Driver* driver, KeyDevice* device);

}  // namespace phone
