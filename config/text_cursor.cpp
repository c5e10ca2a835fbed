// Moving through text that is edited in place.
#include "config/text_cursor.h"

#include <cstring>

#include "config/parse_watch.h"
#include "platform/text.h"

bool at_end(const text_cursor& cursor) {
    return cursor.at >= cursor.end || *cursor.at == '\0';
}

bool is_whitespace(char character) {
    return character != '\0' && strchr(WORD_SEPARATORS, character) != nullptr;
}

void skip_whitespace(text_cursor* cursor) {
    while (!at_end(*cursor) && is_whitespace(*cursor->at)) {
        ++cursor->at;
    }
}

char* find_character(const text_cursor& cursor, char wanted) {
    for (text_cursor next = cursor; !at_end(next); ++next.at) {
        if (*next.at == wanted) {
            return next.at;
        }
    }
    return nullptr;
}

char* take_word(text_cursor* cursor, char* separator) {
    watch_parse(PLACE_WORD, *cursor);
    text_cursor word_end = *cursor;
    while (!at_end(word_end) && !is_whitespace(*word_end.at)) {
        ++word_end.at;
    }
    if (at_end(word_end)) {
        return nullptr;
    }
    char* word = cursor->at;
    *separator = *word_end.at;
    *word_end.at = '\0';
    cursor->at = word_end.at + 1;
    return word;
}

char* take_line(text_cursor* cursor) {
    char* line_end = find_character(*cursor, '\n');
    if (line_end == nullptr) {
        return nullptr;
    }
    char* line = cursor->at;
    *line_end = '\0';
    cursor->at = line_end + 1;
    return line;
}

void skip_line(text_cursor* cursor, char separator) {
    if (separator != '\n' && take_line(cursor) == nullptr && cursor->at < cursor->end) {
        *cursor->at = '\0';
    }
}
