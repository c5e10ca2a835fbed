// The ustar format: the one description of its header block, for the writer and the reader.
#pragma once

#include <cstddef>
#include <cstdint>

// Unit of an archive in bytes: headers are one block, data is padded to whole blocks.
constexpr int TAR_BLOCK_SIZE = 512;

// Bytes that `size` bytes of data take in an archive.
constexpr int padded_to_blocks(int size) {
    return (size + TAR_BLOCK_SIZE - 1) / TAR_BLOCK_SIZE * TAR_BLOCK_SIZE;
}

// Zero bytes that end an archive: two blocks.
constexpr int TAR_END_SIZE = 2 * TAR_BLOCK_SIZE;

// The type of a member.
constexpr char TAR_REGULAR = '0';
constexpr char TAR_REGULAR_OLD = '\0';
constexpr char TAR_HARD_LINK = '1';
constexpr char TAR_SYMLINK = '2';
constexpr char TAR_CHARACTER_DEVICE = '3';
constexpr char TAR_BLOCK_DEVICE = '4';
constexpr char TAR_DIRECTORY = '5';
constexpr char TAR_FIFO = '6';
constexpr char TAR_LONG_LINK = 'K';  // its data is the link name of the next member
constexpr char TAR_LONG_NAME = 'L';  // its data is the name of the next member

// Numbers are octal text; texts need no terminator where they fill their field.
struct ustar_header {
    char name[100];
    char mode[8];
    char uid[8];
    char gid[8];
    char size[12];   // bytes of data that follow, padding not counted
    char mtime[12];  // seconds since 1970
    char chksum[8];
    char typeflag;
    char linkname[100];
    char magic[6];
    char version[2];
    char uname[32];
    char gname[32];
    char devmajor[8];
    char devminor[8];
    char prefix[155];
    char pad[12];
};

static_assert(sizeof(ustar_header) == TAR_BLOCK_SIZE);
static_assert(offsetof(ustar_header, chksum) == 148);
static_assert(offsetof(ustar_header, magic) == 257);
static_assert(offsetof(ustar_header, prefix) == 345);

// Writes `value` into the `width` bytes at `field`: width - 1 zero-padded octal digits and a terminator. Of a
// value with one or two digits more the first is dropped (with two, the digits fill the field and there is no
// terminator). Returns 1, or 0 when the value has yet more digits, or the width is below 1 or above that of
// any number, and the field was left unchanged.
int format_octal_field(char* field, int width, uint64_t value);

// Reads a number as strtol does in base 8, but never beyond the `width` bytes at `field`. A number whose text
// would not fit stands there in binary, marked by the first bit; one that an int64_t cannot hold becomes the
// nearest that it can.
int64_t parse_number_field(const char* field, size_t width);

// The checksum of a block: the sum of its bytes with the checksum field read as eight spaces.
unsigned int ustar_checksum(const ustar_header& header);
