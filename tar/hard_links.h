// Which files with several names an archive holds already.
#pragma once

#include <sys/stat.h>

#include <cstdint>

// One file seen with a link count above 1: one allocated block with its name behind the fixed fields.
struct hl_info {
    hl_info* next;
    uint32_t device;  // the low 32 bits
    uint32_t inode;   // the low 32 bits
    uint16_t link_count;
    char name[];  // the path under which the file was first met, terminated
};

// The records of one archive, newest first; freed with it.
struct HardLinkList {
    hl_info* newest = nullptr;

    HardLinkList() = default;
    HardLinkList(const HardLinkList&) = delete;
    HardLinkList& operator=(const HardLinkList&) = delete;
    ~HardLinkList() { drop_down_to(nullptr); }

    // Frees the records that are newer than `kept`, which is in the list, or null for the whole list.
    void drop_down_to(const hl_info* kept);
};

// Looks a file up. Returns the record that another name of it left, or null when this is its first name; then
// a record is added when it has more names (without memory none is, with a message).
const hl_info* addhard_link_info(HardLinkList* list, const char* path, const struct stat* status);
