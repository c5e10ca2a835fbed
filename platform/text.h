// Filling fixed-size texts. Every function cuts what does not fit, and all but copy_field write a terminator.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

// What separates the words of a line: in the configuration, in a list of paths and in an archive command.
constexpr char WORD_SEPARATORS[] = "\t \r\n";

// Copies `source` into the `size` bytes at `dest` (size at least 1). Returns the length stored.
inline size_t copy_text(char* dest, size_t size, const char* source) {
    const size_t length = strnlen(source, size - 1);
    memcpy(dest, source, length);
    dest[length] = '\0';
    return length;
}

template <size_t N>
size_t copy_text(char (&dest)[N], const char* source) {
    return copy_text(dest, N, source);
}

// Fills a fixed-width field whose text needs no terminator when it fills the field: at most N bytes of
// `source`, up to its terminator, the rest zero.
template <size_t N>
void copy_field(char (&dest)[N], const char* source) {
    const size_t length = strnlen(source, N);
    memcpy(dest, source, length);
    memset(dest + length, 0, N - length);
}

// As append_text, with the arguments in a list.
inline size_t append_text_v(char* dest, size_t size, const char* format, va_list arguments) {
    const size_t used = strnlen(dest, size - 1);
    const int wanted = vsnprintf(dest + used, size - used, format, arguments);
    if (wanted < 0) {
        dest[used] = '\0';
        return used;
    }
    const size_t room = size - used - 1;
    return used + (static_cast<size_t>(wanted) < room ? static_cast<size_t>(wanted) : room);
}

// Appends formatted text to the text of `dest` (`size` bytes in all, at least 1). Returns the length of the
// whole text afterwards.
__attribute__((format(printf, 3, 4))) inline size_t append_text(char* dest, size_t size, const char* format,
                                                                ...) {
    va_list arguments;
    va_start(arguments, format);
    const size_t length = append_text_v(dest, size, format, arguments);
    va_end(arguments);
    return length;
}

// Fills `dest` (`size` bytes, at least 1) with formatted text. Returns the length stored.
__attribute__((format(printf, 3, 4))) inline size_t format_text(char* dest, size_t size, const char* format,
                                                                ...) {
    dest[0] = '\0';
    va_list arguments;
    va_start(arguments, format);
    const size_t length = append_text_v(dest, size, format, arguments);
    va_end(arguments);
    return length;
}
