// Descriptor sets of select.
#pragma once

#include <sys/select.h>

// How long a descriptor rests that is ready, but brings nothing.
constexpr time_t REST_SECONDS = 1;

// Waits for the watched descriptors other than the resting ones; no longer than these rest. What keeps a
// descriptor ready for good neither spins the calling thread then nor delays the other descriptors.
inline void rest_descriptors(const fd_set& watched, const fd_set& resting) {
    fd_set others = watched;
    for (int fd = 0; fd < FD_SETSIZE; ++fd) {
        if (FD_ISSET(fd, &resting)) {
            FD_CLR(fd, &others);
        }
    }
    timeval limit = {REST_SECONDS, 0};
    select(FD_SETSIZE, &others, nullptr, nullptr, &limit);
}
