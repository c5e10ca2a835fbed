// Watching the parser at work. The daemon does not; the configuration checker does, and so says what the
// daemon itself makes of each line.
#pragma once

#include "config/text_cursor.h"

enum parse_place {
    PLACE_TEXT,    // the whole text, before any of it is parsed
    PLACE_HEADER,  // the "[" of a section
    PLACE_WORD,    // a word that is read as the name of a field
    PLACE_VALUE,   // the value of the field just named; for an algo_type without one, the end of its section
};

// Told about each place before it is parsed, when not null. `text` begins there, and is edited from there on.
// Set it while nothing is parsed.
inline void (*parse_watcher)(parse_place place, const text_cursor& text) = nullptr;

inline void watch_parse(parse_place place, const text_cursor& text) {
    if (parse_watcher != nullptr) {
        parse_watcher(place, text);
    }
}
