// The fields of a section.
#include "config/section_fields.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "config/parse_watch.h"
#include "config/value_readers.h"
#include "platform/log.h"
#include "platform/text.h"

const config_field config_field_table[FIELD_NONE] = {
    {"client_name", FIELD_CLIENT_NAME},
    {"device_name", FIELD_DEVICE_NAME},
    {"ic_name", FIELD_IC_NAME},
    {"module_name", FIELD_MODULE_NAME},
    {"sampling_period", FIELD_SAMPLING_PERIOD},
    {"num_triggers", FIELD_NUM_TRIGGERS},
    {"error_no", FIELD_ERROR_NO},
    {"running_test_switch", FIELD_RUNNING_TEST_SWITCH},
    {"action", FIELD_ACTION},
};

namespace {

// The trigger array of a section.
struct trigger_array {
    int32_t& count;
    trigger_info*& slots;
};

trigger_array triggers_of(setting_info* setting) {
    if (setting->server_part == ALGO_POLL) {
        return {setting->poll.num_triggers, setting->poll.triggers};
    }
    return {setting->listen.num_triggers, setting->listen.triggers};
}

struct section_kind;

// One occurrence of a section while its fields are read.
struct section_reader {
    const section_kind& kind;
    text_cursor* body;
    setting_info* setting;
    int32_t trigger;  // index of the slot that the next action line completes
};

// Reads one field's value line. Returns null, or the message that says what is wrong with it.
using field_handler = const char* (*)(const section_reader& reader);

// What differs between the sections of the two servers.
struct section_kind {
    const char* name;  // of the operation, for its messages
    const char* invalid_client_name;
    const char* no_open_slot;
    field_handler sampling_period;  // null where the section has no such field
};

template <size_t N>
bool read_name(const section_reader& reader, char (&dest)[N]) {
    char name[NAME_SIZE] = {};
    if (parse_name(reader.body, name) == 0) {
        return false;
    }
    copy_text(dest, name);
    return true;
}

const char* read_client_name(const section_reader& reader) {
    return read_name(reader, reader.setting->client_name) ? nullptr : reader.kind.invalid_client_name;
}

const char* read_device_name(const section_reader& reader) {
    return read_name(reader, reader.setting->device_name) ? nullptr : "Invalid device name.\n";
}

const char* read_ic_name(const section_reader& reader) {
    return read_name(reader, reader.setting->ic_name) ? nullptr : "Invalid ic name.\n";
}

const char* read_module_name(const section_reader& reader) {
    return read_name(reader, reader.setting->module_name) ? nullptr : "Invalid module name.\n";
}

const char* read_sampling_period(const section_reader& reader) {
    double values[MAX_VALUES];
    if (parse_values(reader.body, values) != 1) {
        return "Invalid sampling period value\n";
    }
    reader.setting->poll.sampling_period = to_int32(values[0]);
    return nullptr;
}

// On failure the section keeps the count and the array that it had, so the two always fit each other.
const char* read_num_triggers(const section_reader& reader) {
    double values[MAX_VALUES];
    if (parse_values(reader.body, values) != 1) {
        return "Invalid trigger numbers value\n";
    }
    const int32_t count = to_int32(values[0]);
    // calloc refuses an array whose size cannot be represented, and takes no memory for slots never written.
    void* slots = nullptr;
    if (count >= 0) {
        slots = calloc(count > 0 ? static_cast<size_t>(count) : 1, sizeof(trigger_info));
    }
    if (slots == nullptr) {
        return "Invalid trigger buf malloc failed\n";
    }
    trigger_array triggers = triggers_of(reader.setting);
    free(triggers.slots);
    triggers.slots = static_cast<trigger_info*>(slots);
    triggers.count = count;
    return nullptr;
}

// The slot to write into, or null when there is none.
trigger_info* open_slot(const section_reader& reader) {
    const trigger_array triggers = triggers_of(reader.setting);
    if (triggers.slots == nullptr || reader.trigger >= triggers.count) {
        return nullptr;
    }
    return &triggers.slots[reader.trigger];
}

// A trigger line without a slot fails the section, whichever of the three it is.
const char* read_error_no(const section_reader& reader) {
    trigger_info* slot = open_slot(reader);
    if (slot == nullptr) {
        return reader.kind.no_open_slot;
    }
    double values[MAX_VALUES];
    if (parse_values(reader.body, values) < 1) {
        return "Ivalid error no.!\n";
    }
    slot->error_no = to_int32(values[0]);
    return nullptr;
}

const char* read_running_test_switch(const section_reader& reader) {
    trigger_info* slot = open_slot(reader);
    if (slot == nullptr) {
        return reader.kind.no_open_slot;
    }
    return read_name(reader, slot->running_test_switch) ? nullptr : "Invalid running test switch.\n";
}

const char* read_action(const section_reader& reader) {
    trigger_info* slot = open_slot(reader);
    if (slot == nullptr) {
        return reader.kind.no_open_slot;
    }
    // A line without a single action leaves the trigger as it was, complete or not.
    action_config actions[MAX_ACTIONS] = {};
    const int count = parse_action_values(reader.body, actions);
    if (count < 1) {
        return "Ivalid error action filed!\n";
    }
    memcpy(slot->actions, actions, sizeof actions);
    slot->action_num = count;
    return nullptr;
}

// By field code; sampling_period is the section's kind's.
constexpr field_handler field_handlers[FIELD_NONE] = {
    read_client_name, read_device_name,         read_ic_name, read_module_name, nullptr, read_num_triggers,
    read_error_no,    read_running_test_switch, read_action,
};

constexpr section_kind listen_kind = {
    "parse_listen_section",
    "Invalid client name\n",
    " wrong trigger number\n",
    nullptr,
};

constexpr section_kind poll_kind = {
    "parse_poll_section",
    "Invalid client name.\n",
    "Invalid trigger buf\n",
    read_sampling_period,
};

// The field of the word at the cursor, which moves to where the field's value should be; FIELD_NONE, the line
// skipped, when the word is no keyword; -1 when it never ends.
int read_field_name(const section_kind& kind, text_cursor* body, const setting_info* setting) {
    char separator = '\0';
    watch_parse(PLACE_WORD, body->at, setting);
    const char* word = take_word(body, &separator);
    if (word == nullptr) {
        LOG_M_AS(kind.name, "Error in file\n");
        return -1;
    }
    const config_field* field = find_field(word);
    if (field == nullptr) {
        LOG_M_AS(kind.name, "Ignoring unknown field '%s'\n", word);
        if (separator != '\n') {
            skip_line(body);
        }
        return FIELD_NONE;
    }
    skip_whitespace(body);
    LOG_D_AS(kind.name, "Found field '%s'\n", field->keyword);
    return field->code;
}

int parse_fields(const section_kind& kind, text_cursor* body, setting_info* setting) {
    section_reader reader = {kind, body, setting, 0};
    int pending = FIELD_NONE;
    while (body->at < body->end && *body->at != '\0') {
        if (is_whitespace(*body->at)) {
            skip_whitespace(body);
            continue;
        }
        if (pending == FIELD_NONE) {
            pending = read_field_name(kind, body, setting);
            if (pending < 0) {
                return -1;
            }
            continue;
        }
        watch_parse(PLACE_VALUE, body->at, setting, static_cast<field_code>(pending), reader.trigger);
        const field_handler handler =
            pending == FIELD_SAMPLING_PERIOD ? kind.sampling_period : field_handlers[pending];
        if (handler == nullptr) {
            LOG_M_AS(kind.name, "Unkown record!");
        } else if (const char* complaint = handler(reader)) {
            LOG_M_AS(kind.name, "%s", complaint);
            return -1;
        } else if (pending == FIELD_ACTION) {
            ++reader.trigger;
        }
        pending = FIELD_NONE;
    }
    return 0;
}

}  // namespace

const config_field* find_field(const char* word) {
    for (const config_field& field : config_field_table) {
        if (strcasecmp(field.keyword, word) == 0) {
            return &field;
        }
    }
    return nullptr;
}

void set_algo(setting_info* setting, int32_t algo_type) {
    setting->algo_type = algo_type;
    if (algo_type == ALGO_UNKNOWN || algo_type == setting->server_part) {
        return;
    }
    // No server runs yet that could hold the dropped array.
    free(triggers_of(setting).slots);
    setting->server_part = static_cast<char>(algo_type);
    if (algo_type == ALGO_POLL) {
        setting->poll = {};
    } else {
        setting->listen = {};
    }
}

int parse_listen_section(text_cursor* body, setting_info* setting) {
    LOG_D("%s: Parsing section %s \n", __FUNCTION__, setting->section_name);
    return parse_fields(listen_kind, body, setting);
}

int parse_poll_section(text_cursor* body, setting_info* setting) {
    LOG_D("%s: Parsing section %s\n", __FUNCTION__, setting->section_name);
    return parse_fields(poll_kind, body, setting);
}
