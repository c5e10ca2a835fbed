// The fields of a section: the keywords, and the loop that reads them into the section's record.
#pragma once

#include <cstddef>

#include "config/settings.h"
#include "config/text_cursor.h"

// Most bytes of the file that are read; what follows is cut off.
constexpr size_t MAX_CONFIG_BYTES = 61439;

enum field_code {
    FIELD_CLIENT_NAME,
    FIELD_DEVICE_NAME,
    FIELD_IC_NAME,
    FIELD_MODULE_NAME,
    FIELD_SAMPLING_PERIOD,
    FIELD_NUM_TRIGGERS,
    FIELD_ERROR_NO,
    FIELD_RUNNING_TEST_SWITCH,
    FIELD_ACTION,
    FIELD_NONE,  // no field is pending; also the number of fields
};

struct config_field {
    const char* keyword;
    field_code code;
};

// The field keywords, by their codes.
extern const config_field config_field_table[FIELD_NONE];

// The field of that keyword in any case, or null.
const config_field* find_field(const char* word);

// Gives the section its server. When that changes, the server's part starts afresh: the two layouts must not
// be taken for each other.
void set_algo(setting_info* setting, int32_t algo_type);

// Read the fields that follow algo_type, to the end of the body, into a section of that algo_type. Return 0,
// or -1 at the first bad field; what was stored before it stays.
int parse_listen_section(text_cursor* body, setting_info* setting);
int parse_poll_section(text_cursor* body, setting_info* setting);
