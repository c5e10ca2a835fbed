// Readers of the value lines of the configuration file.
#include "config/value_readers.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/log.h"
#include "platform/text.h"

static_assert(sizeof(setting_info::client_name) == NAME_SIZE &&
                  sizeof(action_config::client_name) == NAME_SIZE,
              "names are cut alike wherever they stand");

int parse_values(text_cursor* cursor, double* values) {
    char* line = take_line(cursor);
    if (line == nullptr) {
        LOG_M("Invalid index pointer!\n");
        return 0;
    }
    int count = 0;
    char* rest = nullptr;
    for (char* word = strtok_r(line, WORD_SEPARATORS, &rest); word != nullptr && count < MAX_VALUES;
         word = strtok_r(nullptr, WORD_SEPARATORS, &rest)) {
        // The decimal point is always ".": the daemon keeps the C locale.
        values[count++] = strtod(word, nullptr);
    }
    LOG_D("No. of items found : %d\n", count);
    return count;
}

int parse_name(text_cursor* cursor, char* dest) {
    if (cursor == nullptr || dest == nullptr) {
        LOG_M("Invalid pointer!\n");
        return 0;
    }
    char* line = take_line(cursor);
    if (line == nullptr) {
        LOG_M("Invalid index pointer!\n");
        return 0;
    }
    char* rest = nullptr;
    const char* word = strtok_r(line, WORD_SEPARATORS, &rest);
    if (word != nullptr) {
        copy_text(dest, NAME_SIZE, word);
    } else {
        LOG_M("undefined client name!\n");
    }
    LOG_D("No. of items found : %d\n", word != nullptr ? 1 : 0);
    return static_cast<int>(strnlen(dest, NAME_SIZE));
}

int parse_action_values(text_cursor* cursor, action_config* actions) {
    char* line = take_line(cursor);
    if (line == nullptr) {
        LOG_M("Invalid index pointer!\n");
        return 0;
    }
    int count = 0;
    char* rest = nullptr;
    for (char* word = strtok_r(line, WORD_SEPARATORS, &rest); word != nullptr && count < MAX_ACTIONS;
         word = strtok_r(nullptr, WORD_SEPARATORS, &rest)) {
        char* parts = nullptr;
        const char* name = strtok_r(word, "+", &parts);
        if (name == nullptr) {
            LOG_M("Invalid action config. Please attention ...");
            break;
        }
        LOG_D("Found action '%s'\n", name);
        action_config& action = actions[count];
        copy_text(action.client_name, name);
        const char* info = strtok_r(nullptr, "+", &parts);
        if (info == nullptr) {
            LOG_M("client:%s has invalid action info config.", name);
            action = {};
            continue;
        }
        action.action_info = to_int32(strtod(info, nullptr));
        ++count;
    }
    LOG_D("No. of items found : %d\n", count);
    return count;
}

int32_t to_int32(double value) {
    using bounds = std::numeric_limits<int32_t>;
    if (std::isnan(value)) {
        return 0;
    }
    if (value <= bounds::min()) {
        return bounds::min();
    }
    if (value >= bounds::max()) {
        return bounds::max();
    }
    return static_cast<int32_t>(value);
}
