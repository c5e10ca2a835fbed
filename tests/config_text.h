// Configuration texts in and out: what the tests and the fuzzer of the parser share.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "config/settings.h"

// A file of that content, open at its start. The caller closes it.
inline int open_text(const char* text, size_t size) {
    const int fd = memfd_create("config", MFD_CLOEXEC);
    if (fd < 0 || write(fd, text, size) != static_cast<ssize_t>(size) || lseek(fd, 0, SEEK_SET) != 0) {
        abort();
    }
    return fd;
}

// Only one server's part has triggers; a section whose last server is unknown keeps them.
inline int32_t trigger_count(const setting_info& setting) {
    return setting.poll.triggers != nullptr ? setting.poll.num_triggers : setting.listen.num_triggers;
}

inline trigger_info* trigger_slots(const setting_info& setting) {
    return setting.poll.triggers != nullptr ? setting.poll.triggers : setting.listen.triggers;
}

inline void free_settings(setting_info* head) {
    while (head != nullptr) {
        setting_info* next = head->next;
        free(head->listen.triggers);
        free(head->poll.triggers);
        free(head);
        head = next;
    }
}

// One record as text: "NAME listen CLIENT/DEVICE/IC/MODULE 2{20002 on dsm_tp+0 dsm_lcd+1; -}". A poll section
// shows its period ("poll@12"), an unknown one "?", a trigger that is not complete "-".
inline std::string show(const setting_info& setting) {
    std::string text = std::string(setting.section_name) + " ";
    text += setting.algo_type == ALGO_LISTEN ? "listen"
            : setting.algo_type == ALGO_POLL ? "poll@" + std::to_string(setting.poll.sampling_period)
                                             : "?";
    text += std::string(" ") + setting.client_name + "/" + setting.device_name + "/" + setting.ic_name + "/" +
            setting.module_name;
    if (trigger_slots(setting) == nullptr) {
        return text;
    }
    text += " " + std::to_string(trigger_count(setting)) + "{";
    for (int32_t i = 0; i < trigger_count(setting); ++i) {
        const trigger_info& trigger = trigger_slots(setting)[i];
        text += i > 0 ? "; " : "";
        if (trigger.action_num == 0) {
            text += "-";
            continue;
        }
        text += std::to_string(trigger.error_no) + " " + trigger.running_test_switch;
        for (int32_t k = 0; k < trigger.action_num; ++k) {
            const action_config& action = trigger.actions[k];
            text += std::string(" ") + action.client_name + "+" + std::to_string(action.action_info);
        }
    }
    return text + "}";
}

// All records from the head on, with " | " between them.
inline std::string show_all(const setting_info* head) {
    std::string text;
    for (const setting_info* setting = head; setting != nullptr; setting = setting->next) {
        text += (text.empty() ? "" : " | ") + show(*setting);
    }
    return text;
}
