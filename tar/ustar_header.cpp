// Numbers in header blocks, and the checksum.
#include "tar/ustar_header.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include "platform/text.h"

namespace {

// Room for every digit of a value, and for the zero padding of the widest field.
constexpr int OCTAL_TEXT_SIZE = sizeof(uint64_t) * CHAR_BIT / 3 + 2;
static_assert(OCTAL_TEXT_SIZE >= static_cast<int>(sizeof(ustar_header::size)));

// Two's complement behind the mark, the highest byte first.
int64_t parse_binary(const unsigned char* bytes, size_t width) {
    int64_t value = (bytes[0] & 0x7f) - ((bytes[0] & 0x40) != 0 ? 0x80 : 0);
    for (size_t i = 1; i < width; i++) {
        if (value > INT64_MAX / 256 || value < INT64_MIN / 256) {
            return value > 0 ? INT64_MAX : INT64_MIN;
        }
        value = value * 256 + bytes[i];
    }
    return value;
}

}  // namespace

int format_octal_field(char* field, int width, uint64_t value) {
    if (width < 1 || width > OCTAL_TEXT_SIZE) {
        return 0;
    }
    char text[OCTAL_TEXT_SIZE] = {};
    char* const end = text + sizeof text - 1;
    char* first = end;
    do {
        *--first = static_cast<char>('0' + value % 8);
        value /= 8;
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
        return parse_binary(bytes, width);
    }
    char text[sizeof(ustar_header::size) + 1];
    copy_text(text, std::min(width + 1, sizeof text), field);
    return strtoll(text, nullptr, 8);
}

unsigned int ustar_checksum(const ustar_header& header) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&header);
    const unsigned char* const field = bytes + offsetof(ustar_header, chksum);
    const unsigned int sum = std::accumulate(bytes, bytes + sizeof header, 0U);
    return sum - std::accumulate(field, field + sizeof header.chksum, 0U) + sizeof header.chksum * ' ';
}
