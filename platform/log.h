// How the daemon logs: every message names the operation that it comes from.
#pragma once

#include "platform/phone_log.h"

// Non-zero once --debug was given. Written by parse_commandline before any thread exists, read-only
// afterwards.
inline int debug_output_enabled = 0;

// A message that is always logged, under the name of the enclosing function or under a given one.
// __FUNCTION__ is that name on every release; the headers of old ones make __func__ the whole signature.
#define LOG_M(format, ...) LOG_M_AS(__FUNCTION__, format, ##__VA_ARGS__)
#define LOG_M_AS(name, format, ...) \
    __android_log_print(ANDROID_LOG_ERROR, "DMD", "[M/%s] " format, name, ##__VA_ARGS__)

// A message that is logged only while debug output is on.
#define LOG_D(format, ...) LOG_D_AS(__FUNCTION__, format, ##__VA_ARGS__)
#define LOG_D_AS(name, format, ...)                                                               \
    do {                                                                                          \
        if (debug_output_enabled) {                                                               \
            __android_log_print(ANDROID_LOG_ERROR, "DMD", "[D/%s] " format, name, ##__VA_ARGS__); \
        }                                                                                         \
    } while (0)
