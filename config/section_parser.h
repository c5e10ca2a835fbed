// The sections of the configuration file: header, first field and the way to the next section.
#pragma once

#include <cstdint>

#include "config/settings.h"
#include "config/text_cursor.h"

// Parses the section whose "[" is at the cursor into the list at `head` and moves to the "[" of the next one,
// or to the end. The byte at text->end must be writable: it becomes the last section's line end. Returns 0,
// whatever is wrong inside the section, or -1 when its header has no "]" or there is no memory for its
// record.
int parse_section(setting_info** head, text_cursor* text);

// Reads the value of algo_type, up to and with its LF. Returns ALGO_UNKNOWN when it is none.
int32_t parse_algo(text_cursor* body);
