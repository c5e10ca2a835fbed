// Which lines of a user or group file are entries: a slow, plain model that the daemon's readers are held to.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/owned.h"

inline void require(bool holds) {
    if (!holds) {
        abort();
    }
}

// A file with these bytes, at its start.
inline UniqueFd file_of(const uint8_t* data, size_t size) {
    UniqueFd file(memfd_create("input", MFD_CLOEXEC));
    require(write(file.get(), data, size) == static_cast<ssize_t>(size) &&
            lseek(file.get(), 0, SEEK_SET) == 0);
    return file;
}

inline bool is_id(const std::string& text) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    const size_t zeros = text.find_first_not_of('0');
    const std::string digits = zeros == std::string::npos ? "" : text.substr(zeros);
    return digits.size() < 10 || (digits.size() == 10 && digits <= "4294967295");
}

inline uint32_t id_of(const std::string& text) {
    return static_cast<uint32_t>(strtoull(text.c_str(), nullptr, 10));
}

// The `count` fields of a line that is an entry, none of one that is not. A line ends at a zero byte as well.
inline std::vector<std::string> entry_fields(const std::string& line, size_t max_length, size_t count,
                                             const std::vector<size_t>& ids) {
    const std::string text = line.c_str();
    std::vector<std::string> fields(1);
    for (const char letter : text) {
        if (letter == ':' && fields.size() < count) {
            fields.emplace_back();
        } else {
            fields.back() += letter;
        }
    }
    bool good = line.size() <= max_length && !text.empty() && strchr("# \t", text[0]) == nullptr &&
                fields.size() == count;
    for (const size_t id : ids) {
        good = good && is_id(fields[id]);
    }
    return good ? fields : std::vector<std::string>();
}
