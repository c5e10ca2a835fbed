// Numbers in header blocks, and the checksum.
#include "tar/ustar_header.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

// Room for every digit of a value, and for the zero padding of the widest field.
constexpr int OCTAL_TEXT_SIZE = sizeof(uint64_t) * CHAR_BIT / 3 + 2;
static_assert(OCTAL_TEXT_SIZE >= static_cast<int>(sizeof(ustar_header::size)));

unsigned int sum_of_bytes(const void* from, size_t count) {
    const auto* const bytes = static_cast<const unsigned char*>(from);
    unsigned int sum = 0;
    for (size_t i = 0; i < count; i++) {
        sum += bytes[i];
    }
    return sum;
}

}  // namespace

int format_octal_field(char* field, int width, uint64_t value) {
    if (width < 1 || width > OCTAL_TEXT_SIZE) {
        return 0;
    }
    char text[OCTAL_TEXT_SIZE];
    char* const end = text + sizeof text - 1;
    *end = '\0';
    char* first = end;
    do {
        *--first = static_cast<char>('0' + (value & 7));
        value >>= 3;
    } while (value != 0 || end - first < width - 1);
    const auto digits = static_cast<int>(end - first);
    if (digits > width + 1) {
        return 0;
    }
    memcpy(field, digits < width ? first : first + 1, width);
    return 1;
}

int64_t parse_number_field(const char* field, size_t width) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(field);
    if ((bytes[0] & 0x80) != 0) {
        // Two's complement of 7 bits and whole bytes, the highest first.
        int64_t value = (bytes[0] & 0x7f) - ((bytes[0] & 0x40) != 0 ? 0x80 : 0);
        for (size_t i = 1; i < width; i++) {
            if (value > INT64_MAX / 256 || value < INT64_MIN / 256) {
                return value > 0 ? INT64_MAX : INT64_MIN;
            }
            value = value * 256 + bytes[i];
        }
        return value;
    }
    // No field is so wide that its digits could overflow.
    const char* const end = field + std::min(width, sizeof(ustar_header::size));
    const char* at =
        std::find_if_not(field, end, [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); });
    const bool negative = at != end && *at == '-';
    if (at != end && (*at == '-' || *at == '+')) {
        at++;
    }
    int64_t value = 0;
    for (; at != end && *at >= '0' && *at <= '7'; at++) {
        value = value * 8 + (*at - '0');
    }
    return negative ? -value : value;
}

unsigned int ustar_checksum(const ustar_header& header) {
    const unsigned int blanks = sizeof header.chksum * ' ';
    return sum_of_bytes(&header, sizeof header) - sum_of_bytes(header.chksum, sizeof header.chksum) + blanks;
}
