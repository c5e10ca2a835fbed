// A bounded view of text that is edited in place: how the configuration parser moves through a file.
//
// Nothing here reads or writes outside [at, end). A NUL byte, whether the file held it or skip_line left it,
// ends the word, line or header it stands in as the end of the text would: a file with NUL bytes in it is
// never taken for more than it shows.
#pragma once

struct text_cursor {
    char* at;
    char* end;
};

// Whether the cursor is at its end or at a NUL byte.
bool at_end(const text_cursor& cursor);

// Whether `character` is one of WORD_SEPARATORS.
bool is_whitespace(char character);

// Moves over whitespace, to any other character or the end.
void skip_whitespace(text_cursor* cursor);

// The next `wanted`, or null.
char* find_character(const text_cursor& cursor, char wanted);

// Terminates the word at the cursor in place of the separator after it, moves to just after that and stores
// the separator. Returns the word, or null, with nothing changed, when no separator follows.
char* take_word(text_cursor* cursor, char* separator);

// Terminates the line at the cursor in place of its LF and moves to just after that. Returns the line, or
// null, with nothing changed, when no LF follows.
char* take_line(text_cursor* cursor);

// Skips the rest of the line that a word was taken from, given the separator after the word. When no LF
// follows, the text ends here: writes a terminator at the cursor.
void skip_line(text_cursor* cursor, char separator);
