// What the parser tells about the places of the file while it reads it. The daemon does not watch; the
// configuration checker does, and so says what the daemon itself makes of each line.
#pragma once

#include <cstddef>
#include <cstdint>

#include "config/section_fields.h"
#include "config/settings.h"

enum parse_place {
    PLACE_TEXT,    // the whole text that was read, `length` bytes, before any of it is parsed
    PLACE_HEADER,  // the "[" of a section
    PLACE_WORD,    // the word that is taken for a field's name, or a word outside the sections
    PLACE_ALGO,    // the value line of algo_type, or the whitespace before it
    PLACE_VALUE,   // the first word of the value line of `field`
};

struct parse_step {
    parse_place place;
    const char* at;               // in the text, which is edited from there on
    size_t length;                // of the text, else 0
    const setting_info* setting;  // the section's record; null outside the sections and at a header
    field_code field;             // FIELD_NONE but at a value
    int32_t trigger;              // index of the slot that the next action line completes, at a value
};

// Told about each place before it is parsed, when not null. Set it while nothing is parsed.
inline void (*parse_watcher)(const parse_step& step) = nullptr;

// Tells the watcher.
inline void watch_parse(parse_place place, const char* at, const setting_info* setting = nullptr,
                        field_code field = FIELD_NONE, int32_t trigger = 0, size_t length = 0) {
    if (parse_watcher != nullptr) {
        parse_watcher({place, at, length, setting, field, trigger});
    }
}
