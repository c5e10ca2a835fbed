// Which files with several names an archive holds already.
#include "tar/hard_links.h"

#include <cstdlib>
#include <cstring>

#include "platform/log.h"

HardLinkList::~HardLinkList() {
    while (newest != nullptr) {
        hl_info* const next = newest->next;
        free(newest);
        newest = next;
    }
}

const hl_info* HardLinkList::find(const struct stat* status) const {
    const hl_info* link = status->st_nlink > 1 ? newest : nullptr;
    while (link != nullptr && (link->inode != static_cast<uint32_t>(status->st_ino) ||
                               link->device != static_cast<uint32_t>(status->st_dev))) {
        link = link->next;
    }
    return link;
}

void addhard_link_info(HardLinkList* list, const char* path, const struct stat* status) {
    if (status->st_nlink <= 1) {
        return;
    }
    const size_t name_size = strlen(path) + 1;
    auto* const added = static_cast<hl_info*>(malloc(sizeof(hl_info) + name_size));
    if (added == nullptr) {
        LOG_M("hl_info malloc failed.\n");
        return;
    }
    added->next = list->newest;
    added->device = static_cast<uint32_t>(status->st_dev);
    added->inode = static_cast<uint32_t>(status->st_ino);
    added->link_count = static_cast<uint16_t>(status->st_nlink);
    memcpy(added->name, path, name_size);
    list->newest = added;
}
