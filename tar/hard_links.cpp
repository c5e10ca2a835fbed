// Which files with several names an archive holds already.
#include "tar/hard_links.h"

#include <cstdlib>
#include <cstring>

#include "platform/log.h"

void HardLinkList::drop_down_to(const hl_info* kept) {
    while (newest != kept) {
        hl_info* const dropped = newest;
        newest = dropped->next;
        free(dropped);
    }
}

const hl_info* addhard_link_info(HardLinkList* list, const char* path, const struct stat* status) {
    if (status->st_nlink <= 1) {
        return nullptr;
    }
    const auto device = static_cast<uint32_t>(status->st_dev);
    const auto inode = static_cast<uint32_t>(status->st_ino);
    for (const hl_info* link = list->newest; link != nullptr; link = link->next) {
        if (link->inode == inode && link->device == device) {
            return link;
        }
    }
    const size_t name_size = strlen(path) + 1;
    auto* const added = static_cast<hl_info*>(malloc(sizeof(hl_info) + name_size));
    if (added == nullptr) {
        LOG_M("hl_info malloc failed.\n");
        return nullptr;
    }
    added->next = list->newest;
    added->device = device;
    added->inode = inode;
    added->link_count = static_cast<uint16_t>(status->st_nlink);
    memcpy(added->name, path, name_size);
    list->newest = added;
    return nullptr;
}
