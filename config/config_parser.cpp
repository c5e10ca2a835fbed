// Reading the configuration file, and what stands in it outside the sections.
#include "config/config_parser.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "config/parse_watch.h"
#include "config/section_fields.h"
#include "config/section_parser.h"
#include "config/text_cursor.h"
#include "platform/log.h"
#include "platform/owned.h"

namespace {

constexpr char DEFAULT_CONFIG_FILE[] = "/system/etc/device_state_monitor.conf";

// The numbers of the message that a broken file structure is reported with. They are fixed and name no place.
constexpr int STRUCTURE_ERROR_LINE = 788;
constexpr int STRUCTURE_ERROR_CODE = 1;

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

// Passes over a word outside the sections: nothing there has an effect. After a keyword the next word is read
// in its turn, after any other word the rest of the line goes. Returns false when the word never ends.
bool pass_over_word(text_cursor* text) {
    char separator = '\0';
    watch_parse(PLACE_WORD, text->at);
    const char* word = take_word(text, &separator);
    if (word == nullptr) {
        LOG_M_AS("parse_config", "Error in file\n");
        return false;
    }
    if (const config_field* field = find_field(word)) {
        LOG_M_AS("parse_config", "Found filed %s.\n", field->keyword);
        skip_whitespace(text);
        return true;
    }
    LOG_M_AS("parse_config", "Ignoring unknown field %s.\n", word);
    if (separator != '\n') {
        skip_line(text);
    }
    return true;
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
    watch_parse(PLACE_TEXT, text.at, nullptr, FIELD_NONE, 0, static_cast<size_t>(text.end - text.at));
    while (text.at < text.end) {
        bool sound = true;
        if (is_whitespace(*text.at)) {
            skip_whitespace(&text);
        } else if (*text.at == '[') {
            sound = parse_section(head, &text) == 0;
        } else {
            sound = pass_over_word(&text);
        }
        if (!sound) {
            LOG_M("line:%d, error_found: %d", STRUCTURE_ERROR_LINE, STRUCTURE_ERROR_CODE);
            return -1;
        }
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
