// The fields of a section: the keywords, and the loop that reads them into the section's record.
#pragma once

#include "config/settings.h"
#include "config/text_cursor.h"

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
    FIELD_COUNT,
};

// One occurrence of a section while its fields are read.
struct section_reader;

struct config_field {
    field_code code;
    const char* keyword;
    // Reads the value line at the cursor. Returns null, or the message that says what is wrong with it.
    const char* (*read)(section_reader* section);
};

// All fields, in the order of their codes.
extern const config_field config_field_table[FIELD_COUNT];

// The field of that keyword in any case, or null.
const config_field* find_field(const char* word);

// Read the fields that follow algo_type, to the end of the body, into a section of that algo_type. Return 0,
// or -1 at the first bad field; what was stored before it stays.
int parse_listen_section(text_cursor* body, setting_info* setting);
int parse_poll_section(text_cursor* body, setting_info* setting);
