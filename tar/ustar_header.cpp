// Numbers in header blocks, and the checksum.
#include "tar/ustar_header.h"

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/text.h"

namespace {

// Room for every digit of a value, and for the zero padding of the widest field.
constexpr int OCTAL_TEXT_SIZE = sizeof(uint64_t) * CHAR_BIT / 3 + 2;
static_assert(OCTAL_TEXT_SIZE >= static_cast<int>(sizeof(ustar_header::size)));

}  // namespace

int format_octal_field(char* field, int width, uint64_t value) {
    char text[OCTAL_TEXT_SIZE];
    if (width < 1 || width > OCTAL_TEXT_SIZE) {
        return 0;
    }
    const int digits = static_cast<int>(format_text(text, sizeof text, "%0*" PRIo64, width - 1, value));
    if (digits > width + 1) {
        return 0;
    }
    memcpy(field, digits < width ? text : text + 1, width);
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
    char text[sizeof(ustar_header::size) + 1];
    copy_text(text, std::min(width + 1, sizeof text), field);
    return strtoll(text, nullptr, 8);  // not strtol, which reads less on a 32-bit phone than on a desk
}

unsigned int ustar_checksum(const ustar_header& header) {
    unsigned int sum = sizeof header.chksum * ' ';
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&header);
    for (size_t i = 0; i < sizeof header; i++) {
        const bool counted = i < offsetof(ustar_header, chksum) || i >= offsetof(ustar_header, typeflag);
        sum += counted ? bytes[i] : 0;
    }
    return sum;
}
