// Moving through text that is edited in place.
#include "config/text_cursor.h"

#include <cstring>

#include "platform/text.h"

bool is_whitespace(char character) {
    return character != '\0' && strchr(WORD_SEPARATORS, character) != nullptr;
}

void skip_whitespace(text_cursor* cursor) {
    while (cursor->at < cursor->end && is_whitespace(*cursor->at)) {
        ++cursor->at;
    }
}

void skip_line(text_cursor* cursor) {
    if (char* line_end = find_character(*cursor, '\n')) {
        cursor->at = line_end + 1;
    } else if (cursor->at < cursor->end) {
        *cursor->at = '\0';
    }
}

char* find_character(const text_cursor& cursor, char wanted) {
    for (char* at = cursor.at; at < cursor.end && *at != '\0'; ++at) {
        if (*at == wanted) {
            return at;
        }
    }
    return nullptr;
}

char* take_word(text_cursor* cursor, char* separator) {
    char* word_end = cursor->at;
    while (word_end < cursor->end && *word_end != '\0' && !is_whitespace(*word_end)) {
        ++word_end;
    }
    if (word_end == cursor->end || *word_end == '\0') {
        return nullptr;
    }
    char* word = cursor->at;
    *separator = *word_end;
    *word_end = '\0';
    cursor->at = word_end + 1;
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
