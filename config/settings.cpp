// The list of sections and its lookups.
#include "config/settings.h"

#include <strings.h>

setting_info* setting_list = nullptr;

setting_info* find_setting(const char* client_name, int32_t algo_type) {
    for (setting_info* setting = setting_list; setting != nullptr; setting = setting->next) {
        if (setting->algo_type == algo_type && strcasecmp(setting->client_name, client_name) == 0) {
            return setting;
        }
    }
    return nullptr;
}

int count_settings(int32_t algo_type) {
    int count = 0;
    for (const setting_info* setting = setting_list; setting != nullptr; setting = setting->next) {
        count += setting->algo_type == algo_type ? 1 : 0;
    }
    return count;
}

setting_info* find_section(setting_info* head, const char* name) {
    for (setting_info* setting = head; setting != nullptr; setting = setting->next) {
        if (strncasecmp(setting->section_name, name, sizeof setting->section_name) == 0) {
            return setting;
        }
    }
    return nullptr;
}
