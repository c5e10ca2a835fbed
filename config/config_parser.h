// The parser of the configuration file.
#pragma once

#include <cstddef>

#include "config/settings.h"

// Most bytes of the file that are read; what follows is cut off.
constexpr size_t MAX_CONFIG_BYTES = 61439;

// Reads the file at `path` (null for the default one) into setting_list. Returns 0, or -1 when the file
// cannot be read or its structure is broken; sections parsed before that stay in the list. Main thread only,
// before any server runs.
int parse_config_file(const char* path);

// As parse_config_file, with one read from a descriptor that stays the caller's, into the list at `head`.
// Records and their trigger arrays are blocks of malloc.
int parse_config(setting_info** head, int fd);
