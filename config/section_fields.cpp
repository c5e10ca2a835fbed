// The fields of a section.
#include "config/section_fields.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "config/parse_watch.h"
#include "config/value_readers.h"
#include "platform/log.h"
#include "platform/text.h"

namespace {

// How the messages differ between the sections of the two servers.
struct section_kind {
    const char* operation;  // that logs them
    const char* invalid_client_name;
    const char* no_open_slot;
};

constexpr section_kind listen_kind = {
    "parse_listen_section",
    "Invalid client name\n",
    " wrong trigger number\n",
};

constexpr section_kind poll_kind = {
    "parse_poll_section",
    "Invalid client name.\n",
    "Invalid trigger buf\n",
};

}  // namespace

struct section_reader {
    const section_kind& kind;
    text_cursor* body;
    setting_info* setting;
    // Those of the setting's own server.
    int32_t& num_triggers;
    int32_t& complete_end;
    trigger_info*& triggers;
    int32_t trigger;  // index of the slot that the next action line completes
};

namespace {

template <size_t N>
const char* read_name(section_reader* section, char (&dest)[N], const char* complaint) {
    char name[NAME_SIZE] = {};
    if (parse_name(section->body, name) == 0) {
        return complaint;
    }
    copy_text(dest, name);
    return nullptr;
}

const char* read_client_name(section_reader* section) {
    return read_name(section, section->setting->client_name, section->kind.invalid_client_name);
}

const char* read_device_name(section_reader* section) {
    return read_name(section, section->setting->device_name, "Invalid device name.\n");
}

const char* read_ic_name(section_reader* section) {
    return read_name(section, section->setting->ic_name, "Invalid ic name.\n");
}

const char* read_module_name(section_reader* section) {
    return read_name(section, section->setting->module_name, "Invalid module name.\n");
}

const char* read_sampling_period(section_reader* section) {
    if (section->setting->algo_type != ALGO_POLL) {
        // Not read: the value is then taken for the name of a field, an unknown one.
        LOG_M_AS(section->kind.operation, "Unkown record!");
        return nullptr;
    }
    double values[MAX_VALUES];
    if (parse_values(section->body, values) != 1) {
        return "Invalid sampling period value\n";
    }
    section->setting->poll.sampling_period = to_int32(values[0]);
    return nullptr;
}

// On failure the section keeps the count and the array that it had, so the two always fit each other.
const char* read_num_triggers(section_reader* section) {
    double values[MAX_VALUES];
    if (parse_values(section->body, values) != 1) {
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
    free(section->triggers);
    section->triggers = static_cast<trigger_info*>(slots);
    section->num_triggers = count;
    section->complete_end = 0;
    return nullptr;
}

// The slot that the three lines of a trigger write into, or null when there is none.
trigger_info* open_slot(const section_reader& section) {
    return section.trigger < section.num_triggers ? &section.triggers[section.trigger] : nullptr;
}

const char* read_error_no(section_reader* section) {
    trigger_info* slot = open_slot(*section);
    if (slot == nullptr) {
        return section->kind.no_open_slot;
    }
    double values[MAX_VALUES];
    if (parse_values(section->body, values) < 1) {
        return "Ivalid error no.!\n";
    }
    slot->error_no = to_int32(values[0]);
    return nullptr;
}

const char* read_running_test_switch(section_reader* section) {
    trigger_info* slot = open_slot(*section);
    if (slot == nullptr) {
        return section->kind.no_open_slot;
    }
    return read_name(section, slot->running_test_switch, "Invalid running test switch.\n");
}

const char* read_action(section_reader* section) {
    trigger_info* slot = open_slot(*section);
    if (slot == nullptr) {
        return section->kind.no_open_slot;
    }
    // A line without a single action leaves the trigger as it was, complete or not.
    action_config actions[MAX_ACTIONS] = {};
    const int count = parse_action_values(section->body, actions);
    if (count < 1) {
        return "Ivalid error action filed!\n";
    }
    memcpy(slot->actions, actions, sizeof actions);
    slot->action_num = count;
    ++section->trigger;
    // A repetition of the section begins with the first slot again.
    section->complete_end = std::max(section->complete_end, section->trigger);
    return nullptr;
}

int parse_fields(section_reader section) {
    const char* const operation = section.kind.operation;
    text_cursor* const body = section.body;
    for (;;) {
        skip_whitespace(body);
        if (at_end(*body)) {
            return 0;
        }
        char separator = '\0';
        const char* word = take_word(body, &separator);
        if (word == nullptr) {
            LOG_M_AS(operation, "Error in file\n");
            return -1;
        }
        const config_field* field = find_field(word);
        if (field == nullptr) {
            LOG_M_AS(operation, "Ignoring unknown field '%s'\n", word);
            skip_line(body, separator);
            continue;
        }
        skip_whitespace(body);
        LOG_D_AS(operation, "Found field '%s'\n", field->keyword);
        if (at_end(*body)) {
            return 0;  // a last keyword without a value is dropped
        }
        watch_parse(PLACE_VALUE, *body);
        if (const char* complaint = field->read(&section)) {
            LOG_M_AS(operation, "%s", complaint);
            return -1;
        }
    }
}

}  // namespace

const config_field config_field_table[FIELD_COUNT] = {
    {FIELD_CLIENT_NAME, "client_name", read_client_name},
    {FIELD_DEVICE_NAME, "device_name", read_device_name},
    {FIELD_IC_NAME, "ic_name", read_ic_name},
    {FIELD_MODULE_NAME, "module_name", read_module_name},
    {FIELD_SAMPLING_PERIOD, "sampling_period", read_sampling_period},
    {FIELD_NUM_TRIGGERS, "num_triggers", read_num_triggers},
    {FIELD_ERROR_NO, "error_no", read_error_no},
    {FIELD_RUNNING_TEST_SWITCH, "running_test_switch", read_running_test_switch},
    {FIELD_ACTION, "action", read_action},
};

const config_field* find_field(const char* word) {
    for (const config_field& field : config_field_table) {
        if (strcasecmp(field.keyword, word) == 0) {
            return &field;
        }
    }
    return nullptr;
}

// An earlier occurrence may have been for the other server. Its part goes; no server runs yet that could hold
// the triggers.
int parse_listen_section(text_cursor* body, setting_info* setting) {
    LOG_D("%s: Parsing section %s \n", __FUNCTION__, setting->section_name);
    free(setting->poll.triggers);
    setting->poll = {};
    listen_setting& listen = setting->listen;
    return parse_fields(
        {listen_kind, body, setting, listen.num_triggers, listen.complete_end, listen.triggers, 0});
}

int parse_poll_section(text_cursor* body, setting_info* setting) {
    LOG_D("%s: Parsing section %s\n", __FUNCTION__, setting->section_name);
    free(setting->listen.triggers);
    setting->listen = {};
    poll_setting& poll = setting->poll;
    return parse_fields({poll_kind, body, setting, poll.num_triggers, poll.complete_end, poll.triggers, 0});
}
