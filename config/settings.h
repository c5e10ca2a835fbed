// What the configuration file says, section by section.
#pragma once

#include <cstdint>

// Which server watches a section's client.
constexpr int32_t ALGO_LISTEN = 0;
constexpr int32_t ALGO_POLL = 1;
constexpr int32_t ALGO_UNKNOWN = 2;

// Most actions of one trigger.
constexpr int MAX_ACTIONS = 8;

struct action_config {
    char client_name[32];  // the client whose operation runs, terminated text
    int32_t action_info;   // the slot of that operation; as written, so the dispatch checks its range
};

// One trigger. It is complete, and may fire, once its `action` line was read: while action_num is 0 the other
// fields mean nothing and the servers pass the trigger over, also when its error_no equals the one reported.
struct trigger_info {
    int32_t error_no;             // the error number (listen) or state number (poll) that fires it
    int32_t action_num;           // entries of actions in use, 1 to MAX_ACTIONS; 0 while not complete
    char running_test_switch[4];  // terminated text handed to the dump operations, empty when not given
    action_config actions[MAX_ACTIONS];
};

// In both settings num_triggers is the number of elements of triggers, as the file announced them: 0 as long
// as triggers is null, never negative, and usually but not always the number of complete triggers. Those all
// stand below complete_end, where a search may stop: the file may announce millions.
struct listen_setting {
    int32_t num_triggers;
    // From calloc, so zero where nothing was written; null before num_triggers was read.
    trigger_info* triggers;
    int32_t complete_end;
};

// The poll server's clock, and the period of a section that gives none or 0, in its ticks.
constexpr unsigned int TICK_SECONDS = 5;
constexpr uint32_t DEFAULT_SAMPLE_PERIOD = 5;

struct poll_setting {
    int32_t sampling_period;  // ticks; 0 when the section gives none
    int32_t num_triggers;
    trigger_info* triggers;  // as in listen_setting
    int32_t complete_end;
};

// One section. Texts are terminated, and cut to their field's size less one.
struct setting_info {
    int32_t algo_type;
    setting_info* next;
    char section_name[32];
    char client_name[32];
    char device_name[32];
    char ic_name[4];
    char module_name[4];
    // Of these only one is filled: a section is for one server, the last one that it named.
    listen_setting listen;
    poll_setting poll;
    char algo_first;  // always 1: every occurrence of the section must begin with algo_type
};

// All sections, the one whose name was first met last at the head. Built by the main thread before any other
// thread exists and never changed or freed afterwards, so it is read without a lock.
extern setting_info* setting_list;

// The first section of setting_list for the client (whole name, any case) and the server, or null.
setting_info* find_setting(const char* client_name, int32_t algo_type);

// The number of sections for the server.
int count_settings(int32_t algo_type);

// The first section of `head` whose name equals `name` in any case over at most 32 characters, or null.
setting_info* find_section(setting_info* head, const char* name);
