// Reading the configuration file: what stands outside the sections, their headers and their first field.
#include "config/config_parser.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "config/parse_watch.h"
#include "config/section_fields.h"
#include "config/text_cursor.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

constexpr char DEFAULT_CONFIG_FILE[] = "/system/etc/device_state_monitor.conf";

// The numbers of the message that a broken file structure is reported with. They are fixed and name no place.
constexpr int STRUCTURE_ERROR_LINE = 788;
constexpr int STRUCTURE_ERROR_CODE = 1;

const struct {
    const char* name;
    int32_t algo_type;
} algo_table[] = {
    {"poll", ALGO_POLL},
    {"listen", ALGO_LISTEN},
};

// The length of the text to parse. Where a file goes on beyond what was read, the line that the cut falls
// into is left out: half a line is neither a broken file nor a shorter number.
size_t whole_lines(int fd, const char* text, size_t got) {
    char next = '\n';
    if (got < MAX_CONFIG_BYTES || pread(fd, &next, 1, static_cast<off_t>(got)) != 1 || next == '\n' ||
        next == '\r') {
        return got;
    }
    for (size_t length = got; length > 0; --length) {
        if (text[length - 1] == '\n') {
            return length;
        }
    }
    return got;
}

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

// Reads the value of algo_type, up to and with its LF. Returns ALGO_UNKNOWN when it is none.
int32_t parse_algo(text_cursor* body) {
    skip_whitespace(body);
    watch_parse(PLACE_VALUE, *body);
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

// Parses the section whose "[" is at the cursor and moves to the "[" of the next one, or to the end. Returns
// 0, whatever is wrong inside the section, or -1 when its header has no "]" or there is no memory for its
// record.
int parse_section(setting_info** head, text_cursor* text) {
    watch_parse(PLACE_HEADER, *text);
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
    const char* word = take_word(&body, &separator);
    if (word == nullptr) {
        LOG_M("Error in section\n");
        return 0;
    }
    if (strcasecmp(word, "algo_type") != 0) {
        LOG_M("%s: algo_type field not first field in section\n", __FUNCTION__);
        return 0;
    }
    setting->algo_type = parse_algo(&body);
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

// Passes over a word outside the sections: nothing there has an effect. After a keyword the next word is read
// in its turn, after any other word the rest of the line goes. Returns 0, or -1 when the word never ends.
int pass_over_word(text_cursor* text) {
    char separator = '\0';
    const char* word = take_word(text, &separator);
    if (word == nullptr) {
        LOG_M_AS("parse_config", "Error in file\n");
        return -1;
    }
    if (const config_field* field = find_field(word)) {
        LOG_M_AS("parse_config", "Found filed %s.\n", field->keyword);
    } else {
        LOG_M_AS("parse_config", "Ignoring unknown field %s.\n", word);
        skip_line(text, separator);
    }
    return 0;
}

}  // namespace

int parse_config(setting_info** head, int fd) {
    // One byte more than is read: the line end that closes the last section.
    const UniqueBuffer buffer = allocate_zeroed(MAX_CONFIG_BYTES + 1);
    if (buffer == nullptr) {
        LOG_M("buffer malloc failed. error info:%s.", strerror(errno));
        return -1;
    }
    if (head == nullptr || fd < 0) {
        LOG_M("Invalid pointer or fd!\n");
        return -1;
    }
    LOG_M("Loading  configuration file...\n");
    const ssize_t got = read(fd, buffer.get(), MAX_CONFIG_BYTES);  // what one read brings is the file
    if (got < 0) {
        LOG_M("Failed to read config file\n");
        return -1;
    }
    LOG_M("Config file read (%d bytes)\n", static_cast<int>(got));

    text_cursor text = {buffer.get(), buffer.get() + whole_lines(fd, buffer.get(), static_cast<size_t>(got))};
    watch_parse(PLACE_TEXT, text);
    skip_whitespace(&text);
    while (text.at < text.end) {
        const int result = *text.at == '[' ? parse_section(head, &text) : pass_over_word(&text);
        if (result != 0) {
            LOG_M("line:%d, error_found: %d", STRUCTURE_ERROR_LINE, STRUCTURE_ERROR_CODE);
            return -1;
        }
        skip_whitespace(&text);
    }
    return 0;
}

int parse_config_file(const char* path) {
    if (path == nullptr) {
        path = DEFAULT_CONFIG_FILE;
    }
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    // Start-up waits neither for a writer nor for a person.
    const bool may_wait = file.valid() && ((fstat(file.get(), &status) == 0 && S_ISFIFO(status.st_mode)) ||
                                           isatty(file.get()) != 0);
    if (!file.valid() || may_wait) {
        LOG_M("Unable to open config file %s, err_info:%s\n", path,
              may_wait ? "it is a pipe or a terminal, only files are read" : strerror(errno));
        return -1;
    }
    if (parse_config(&setting_list, file.get()) != 0) {
        LOG_M("Failed to parse config file %s.\n", path);
        return -1;
    }
    return 0;
}
