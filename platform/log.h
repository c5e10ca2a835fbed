// How the daemon logs: every message names the operation that it comes from.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstring>

#include "platform/phone_log.h"
#include "platform/text.h"

// Non-zero once --debug was given. Written by parse_commandline before any thread exists, read-only
// afterwards.
inline int debug_output_enabled = 0;

// liblog cuts a message to this size, its terminator included.
constexpr size_t LOG_MESSAGE_SIZE = 1024;

// Logs a message as one line: control characters but a final line feed become \xNN. A text that somebody else
// has written can thus not pass for a line of the daemon's own.
__attribute__((format(printf, 1, 2))) inline void log_message(const char* format, ...) {
    char message[LOG_MESSAGE_SIZE] = "";
    va_list arguments;
    va_start(arguments, format);
    append_text_v(message, sizeof message, format, arguments);
    va_end(arguments);
    char line[4 * LOG_MESSAGE_SIZE];
    size_t length = 0;
    for (const char* at = message; *at != '\0'; ++at) {
        // U+0080 to U+009F have two bytes in UTF-8.
        const bool is_wide = at[0] == '\xc2' && (at[1] & 0xe0) == 0x80;
        at += is_wide ? 1 : 0;
        const auto character = static_cast<unsigned char>(*at);
        // An old C library's iscntrl may be true for bytes of UTF-8 as well.
        const bool is_control = is_wide || character < ' ' || character == 0x7f;
        if (is_control && strcmp(at, "\n") != 0) {
            length += format_text(line + length, sizeof line - length, "\\x%02x", character);
        } else {
            line[length++] = *at;
        }
    }
    line[length] = '\0';
    __android_log_print(ANDROID_LOG_ERROR, "DMD", "%s", line);
}

// A message that is always logged, under the name of the enclosing function or under a given one.
// __FUNCTION__ is that name on every release; the headers of old ones make __func__ the whole signature.
#define LOG_M(format, ...) LOG_M_AS(__FUNCTION__, format, ##__VA_ARGS__)
#define LOG_M_AS(name, format, ...) log_message("[M/%s] " format, name, ##__VA_ARGS__)

// A message that is logged only while debug output is on, with the line ends of the buffers that it shows.
#define LOG_D(format, ...) LOG_D_AS(__FUNCTION__, format, ##__VA_ARGS__)
#define LOG_D_AS(name, format, ...)                                                               \
    do {                                                                                          \
        if (debug_output_enabled) {                                                               \
            __android_log_print(ANDROID_LOG_ERROR, "DMD", "[D/%s] " format, name, ##__VA_ARGS__); \
        }                                                                                         \
    } while (0)
