// Writing all of something.
#pragma once

#include <unistd.h>

#include <string_view>

namespace tools {

// Returns false, and errno says why, when not all of the bytes could be written.
inline bool write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

}  // namespace tools
