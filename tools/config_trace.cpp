// Watching the parser.
#include "tools/config_trace.h"

#include <algorithm>
#include <string_view>

#include "config/config_parser.h"
#include "platform/desk/log.h"
#include "platform/text.h"

namespace tools {
namespace {

// The parser's callbacks have no room for the trace they belong to.
ConfigTrace* current = nullptr;
const char* text_begin = nullptr;

void take_message(int /*priority*/, const char* /*tag*/, const char* message) {
    std::string text = message;
    text.erase(text.find_last_not_of('\n') + 1);
    (current->steps.empty() ? current->messages : current->steps.back().messages).push_back(text);
}

// The characters that end what is read at the place.
std::string ends_of(parse_place place) {
    switch (place) {
        case PLACE_HEADER:
            return "]";
        case PLACE_WORD:
            return WORD_SEPARATORS + std::string(1, '\0');
        default:
            return std::string("\n\0", 2);
    }
}

void take_step(parse_place place, const text_cursor& rest) {
    if (place == PLACE_TEXT) {
        text_begin = rest.at;
        current->text.assign(rest.at, rest.end);
        return;
    }
    const std::string& text = current->text;
    std::vector<TraceStep>& steps = current->steps;
    // The last section's line end stands behind the text, and the parser may have passed it.
    size_t offset = std::min(static_cast<size_t>(rest.at - text_begin), text.size());
    // A section's body ends differently from what was in the file.
    const std::string_view parsed(text_begin, text.size());
    const size_t begin = place == PLACE_HEADER ? offset + 1 : offset;
    size_t end = std::min(parsed.find_first_of(ends_of(place), begin), parsed.size());
    if (place == PLACE_VALUE && at_end(rest)) {
        // Without a value it is about the keyword.
        offset = steps.back().offset;
        end = begin;
    }
    const size_t counted = steps.empty() ? 0 : steps.back().offset;
    const auto line_ends = std::count(text.data() + counted, text.data() + offset, '\n');
    const int line = (steps.empty() ? 1 : steps.back().line) + static_cast<int>(line_ends);
    const size_t line_begin = offset == 0 ? 0 : text.rfind('\n', offset - 1) + 1;
    const bool first = text.find_first_not_of(" \t\r", line_begin) == offset;
    steps.push_back({place, offset, line, first, std::string(parsed.substr(begin, end - begin)), {}});
}

}  // namespace

ConfigTrace trace_config(const std::string& path) {
    ConfigTrace trace;
    current = &trace;
    desk_log_set_sink(take_message);
    parse_watcher = take_step;
    trace.parsed = parse_config_file(path.c_str()) == 0;
    parse_watcher = nullptr;
    desk_log_set_sink(nullptr);
    current = nullptr;
    return trace;
}

}  // namespace tools
