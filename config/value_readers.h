// Readers of the value lines of the configuration file. Each reads the rest of the line at the cursor, up to
// and with its LF, and moves past it; without an LF it logs that, moves nothing and returns 0.
#pragma once

#include <cstdint>

#include "config/settings.h"
#include "config/text_cursor.h"

// Most numbers that are read from a line.
constexpr int MAX_VALUES = 8;

// Size in bytes of the buffer for a name, its terminator included.
constexpr int NAME_SIZE = 32;

// Reads up to MAX_VALUES numbers into `values`. Every word counts; what is no number gives 0. Returns how
// many.
int parse_values(text_cursor* cursor, double* values);

// Copies the first word, cut to NAME_SIZE - 1 characters, into `dest` (NAME_SIZE bytes of terminated text),
// which keeps what it held when the line has none. Returns the length of the text in `dest`.
int parse_name(text_cursor* cursor, char* dest);

// Reads up to MAX_ACTIONS words of the form client+slot into `actions`. Words without a slot are logged and
// passed over, a word of "+" alone ends the reading. Returns the number of actions stored.
int parse_action_values(text_cursor* cursor, action_config* actions);

// A number as the file gives it: cut toward zero, held at the bounds of the range, 0 when it is no number.
int32_t to_int32(double value);
