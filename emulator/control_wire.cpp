// Word lists to bytes and back.
#include "emulator/control_wire.h"

#include <cstring>

namespace phone {

namespace {

void append_number(std::string* out, size_t number) {
    const uint32_t value = static_cast<uint32_t>(number);
    out->append(reinterpret_cast<const char*>(&value), sizeof(value));
}

bool take_number(std::string_view* data, uint32_t* value) {
    if (data->size() < sizeof(*value)) {
        return false;
    }
    memcpy(value, data->data(), sizeof(*value));
    data->remove_prefix(sizeof(*value));
    return true;
}

}  // namespace

std::string encode_words(const Words& words) {
    size_t size = sizeof(uint32_t);
    for (const std::string& word : words) {
        size += sizeof(uint32_t) + word.size();
    }
    std::string out;
    out.reserve(WIRE_LENGTH_SIZE + size);
    append_number(&out, size);
    append_number(&out, words.size());
    for (const std::string& word : words) {
        append_number(&out, word.size());
        out += word;
    }
    return out;
}

bool decode_words(std::string_view message, Words* words) {
    words->clear();
    uint32_t count = 0;
    if (!take_number(&message, &count)) {
        return false;
    }
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t length = 0;
        if (!take_number(&message, &length) || length > message.size()) {
            return false;
        }
        words->emplace_back(message.substr(0, length));
        message.remove_prefix(length);
    }
    return message.empty();
}

uint32_t announced_length(std::string_view data) {
    uint32_t length = 0;
    memcpy(&length, data.data(), sizeof(length));
    return length;
}

}  // namespace phone
