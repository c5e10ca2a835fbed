// Watching the parser.
#include "tools/config_trace.h"

#include <algorithm>

#include "config/config_parser.h"
#include "platform/desk/log.h"

namespace tools {
namespace {

// The parser's callbacks have no room for the trace they belong to.
ConfigTrace* current = nullptr;
const char* text_begin = nullptr;

// The parser goes forward only, so its lines are counted once.
size_t counted_bytes = 0;
int counted_line = 1;

void take_message(int /*priority*/, const char* /*tag*/, const char* message) {
    std::string text = message;
    text.erase(text.find_last_not_of('\n') + 1);
    (current->steps.empty() ? current->messages : current->steps.back().messages).push_back(text);
}

// Whether `character` ends what is read at the place.
bool ends(parse_place place, char character) {
    switch (place) {
        case PLACE_HEADER:
            return character == ']';
        case PLACE_WORD:
            return is_whitespace(character) || character == '\0';
        default:
            return character == '\n' || character == '\0';
    }
}

void take_step(const parse_step& step) {
    if (step.place == PLACE_TEXT) {
        text_begin = step.at;
        current->text.assign(step.at, step.length);
        return;
    }
    const std::string& text = current->text;
    const char* const end = text_begin + text.size();
    // The last section's line end stands behind the text, and the parser may have passed it.
    const char* at = std::min(step.at, end);
    const auto offset = static_cast<size_t>(at - text_begin);
    if (step.place == PLACE_HEADER) {
        ++at;
    } else if (step.place == PLACE_ALGO) {
        const char* const value = std::find_if_not(at, end, is_whitespace);
        const bool has_value = value != end && *value != '[' && *value != '\0';
        // Without a value it is about the keyword, which ends with the separator before it.
        at = has_value ? value : at - 1;
    }
    const char* const stop = std::find_if(at, end, [&](char c) { return ends(step.place, c); });
    const auto shown = static_cast<size_t>(at - text_begin);
    const size_t begin = step.place == PLACE_HEADER ? offset : shown;
    if (begin > counted_bytes) {
        counted_line += static_cast<int>(std::count(text.begin() + static_cast<ptrdiff_t>(counted_bytes),
                                                    text.begin() + static_cast<ptrdiff_t>(begin), '\n'));
        counted_bytes = begin;
    }
    size_t before = begin;
    while (before > 0 && (text[before - 1] == ' ' || text[before - 1] == '\t' || text[before - 1] == '\r')) {
        --before;
    }
    current->steps.push_back({step.place,
                              counted_line,
                              before == 0 || text[before - 1] == '\n',
                              std::string(at, stop),
                              step.setting,
                              step.field,
                              step.trigger,
                              {}});
}

}  // namespace

ConfigTrace trace_config(const std::string& path) {
    ConfigTrace trace;
    current = &trace;
    counted_bytes = 0;
    counted_line = 1;
    desk_log_set_sink(take_message);
    parse_watcher = take_step;
    trace.parsed = parse_config_file(path.c_str()) == 0;
    parse_watcher = nullptr;
    desk_log_set_sink(nullptr);
    current = nullptr;
    return trace;
}

bool has_message(const TraceStep& step, const char* part) {
    return std::any_of(step.messages.begin(), step.messages.end(), [part](const std::string& message) {
        return message.find(part) != std::string::npos;
    });
}

int line_of(const std::string& text, size_t offset) {
    return 1 + static_cast<int>(std::count(
                   text.begin(), text.begin() + static_cast<ptrdiff_t>(std::min(offset, text.size())), '\n'));
}

}  // namespace tools
