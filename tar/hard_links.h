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
    ~HardLinkList();

    // The record that another name of the file left, or null when this is its first name.
    const hl_info* find(const struct stat* status) const;
};

// Records a file that has just been archived, if it has other names. Without memory it is not recorded, with
// a message, and its other names become members with data of their own.
void addhard_link_info(HardLinkList* list, const char* path, const struct stat* status);
