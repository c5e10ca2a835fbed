// The sections of the configuration file.
#include "config/section_parser.h"

#include <strings.h>

#include <cstring>

#include "config/parse_watch.h"
#include "config/section_fields.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

const struct {
    const char* name;
    int32_t algo_type;
} algo_table[] = {
    {"poll", ALGO_POLL},
    {"listen", ALGO_LISTEN},
};

// The record of the section called `name`, a new one when the list has none. The field holds 31 characters,
// so a longer name is cut to them, also for the comparison: its repetitions reuse the record.
setting_info* obtain_section(setting_info** head, const char* name) {
    char section_name[sizeof setting_info::section_name];
    copy_text(section_name, name);
    if (setting_info* known = find_section(*head, section_name)) {
        return known;
    }
    setting_info* const setting = allocate<setting_info>().release();
    if (setting == nullptr) {
        LOG_M_AS("parse_config", "[%s]Failed to malloc temp struct setting_info.\n", "parse_config");
        return nullptr;
    }
    setting->algo_type = ALGO_UNKNOWN;
    setting->algo_first = 1;
    copy_text(setting->section_name, section_name);
    setting->next = *head;
    *head = setting;
    return setting;
}

// Takes what stands from the cursor to the next "[", or to the end, out of the text, and gives it a final
// line end. A NUL byte does not hide the "[": it costs its own section only, not those after it.
text_cursor take_body(text_cursor* text) {
    text_cursor body = *text;
    char* next = static_cast<char*>(memchr(text->at, '[', static_cast<size_t>(text->end - text->at)));
    if (next == nullptr) {
        *text->end = '\n';
        body.end = text->end + 1;
        text->at = text->end;
        return body;
    }
    if (next > text->at) {
        next[-1] = '\n';
    }
    body.end = next;
    text->at = next;
    return body;
}

}  // namespace

int parse_section(setting_info** head, text_cursor* text) {
    watch_parse(PLACE_HEADER, text->at);
    const char* name = text->at + 1;
    char* name_end = find_character(*text, ']');
    if (name_end == nullptr) {
        return -1;
    }
    *name_end = '\0';
    setting_info* setting = obtain_section(head, name);
    if (setting == nullptr) {
        return -1;
    }
    text->at = name_end + 1;
    text_cursor body = take_body(text);
    LOG_D("Parsing section %s\n", setting->section_name);

    skip_whitespace(&body);
    char separator = '\0';
    watch_parse(PLACE_WORD, body.at, setting);
    const char* word = take_word(&body, &separator);
    if (word == nullptr) {
        LOG_M("Error in section\n");
        return 0;
    }
    if (strcasecmp(word, "algo_type") != 0) {
        LOG_M("%s: algo_type field not first field in section\n", __FUNCTION__);
        return 0;
    }
    watch_parse(PLACE_ALGO, body.at, setting);
    set_algo(setting, parse_algo(&body));
    if (setting->algo_type == ALGO_LISTEN) {
        if (parse_listen_section(&body, setting) != 0) {
            LOG_M("parse_listen_section failed!\n");
        }
    } else if (setting->algo_type == ALGO_POLL) {
        if (parse_poll_section(&body, setting) != 0) {
            LOG_M("parse_poll_section failed!\n");
        }
    } else {
        LOG_D("%s: Uknown algo type for section %s", __FUNCTION__, setting->section_name);
    }
    return 0;
}

int32_t parse_algo(text_cursor* body) {
    skip_whitespace(body);
    char* line = take_line(body);
    if (line == nullptr) {
        LOG_M("Ivalid index pointer!\n");
        return ALGO_UNKNOWN;
    }
    char* rest = nullptr;
    const char* word = strtok_r(line, WORD_SEPARATORS, &rest);
    if (word == nullptr) {
        return ALGO_UNKNOWN;
    }
    for (const auto& algo : algo_table) {
        if (strcasecmp(algo.name, word) == 0) {
            return algo.algo_type;
        }
    }
    LOG_M("Unknown algo '%s'\n", word);
    return ALGO_UNKNOWN;
}
