// A hash that is the same in every run and on every machine.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tools {

// FNV-1a of 64 bits, continued from `hash`.
inline uint64_t stable_hash(std::string_view bytes, uint64_t hash = 0xcbf29ce484222325) {
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    }
    return hash;
}

}  // namespace tools
