// Word lists to bytes and back: each word stands behind its length.
#include "emulator/control_wire.h"

#include <cstdint>
#include <cstring>

namespace phone {

std::string encode_words(const Words& words) {
    std::string out;
    for (const std::string& word : words) {
        const uint32_t length = static_cast<uint32_t>(word.size());
        out.append(reinterpret_cast<const char*>(&length), sizeof(length));
        out += word;
    }
    return out;
}

bool decode_words(std::string_view message, Words* words) {
    words->clear();
    while (!message.empty()) {
        uint32_t length = 0;
        if (message.size() < sizeof(length)) {
            return false;
        }
        memcpy(&length, message.data(), sizeof(length));
        message.remove_prefix(sizeof(length));
        if (length > message.size()) {
            return false;
        }
        words->emplace_back(message.substr(0, length));
        message.remove_prefix(length);
    }
    return true;
}

}  // namespace phone
