// The words of keys, and what their last character means.
#include "emulator/key_words.h"

#include <linux/input.h>

#include "emulator/refusal.h"

namespace phone {

namespace {

constexpr struct {
    const char* word;
    const char* device;
    int code;
} KEYS[] = {
    {"up", "event1", KEY_VOLUMEUP},
    {"down", "event1", KEY_VOLUMEDOWN},
    {"power", "event0", KEY_POWER},
};

// The values of the events that a mark behind the word stands for.
constexpr struct {
    const char* mark;
    const char* values[2];
} MARKS[] = {
    {"", {"1", "0"}},
    {"+", {"1", nullptr}},
    {"-", {"0", nullptr}},
    {"=", {"2", nullptr}},
};

void append_requests(const std::string& word, std::vector<Words>* requests) {
    for (const auto& key : KEYS) {
        for (const auto& mark : MARKS) {
            if (word != std::string(key.word) + mark.mark) {
                continue;
            }
            for (const char* value : mark.values) {
                if (value != nullptr) {
                    requests->push_back({"key", key.device, std::to_string(key.code), value});
                }
            }
            return;
        }
    }
    throw Refusal("'" + word + "' is no word for a key: " + KEY_WORD_FORMS);
}

}  // namespace

std::vector<Words> key_requests(const std::vector<std::string>& words) {
    std::vector<Words> requests;
    for (const std::string& word : words) {
        append_requests(word, &requests);
    }
    return requests;
}

}  // namespace phone
