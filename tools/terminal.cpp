// Printing for people and for programs.
#include "tools/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <locale>
#include <string_view>

namespace tools {
namespace {

// A character of a text; of length 0 where the text is no UTF-8.
struct Character {
    char32_t code;
    size_t length;
};

// The character at the place, in whatever locale.
Character character_at(const std::string& text, size_t at) {
    using Utf8 = std::codecvt<char32_t, char, std::mbstate_t>;
    static const Utf8& utf8 = std::use_facet<Utf8>(std::locale::classic());
    std::mbstate_t state = {};
    char32_t code = 0;
    char32_t* code_end = nullptr;
    const char* const begin = text.data() + at;
    const char* end = begin;
    utf8.in(state, begin, text.data() + text.size(), end, &code, &code + 1, code_end);
    const bool is_surrogate = code >= 0xd800 && code <= 0xdfff;  // which not every library refuses
    return {code, is_surrogate ? 0 : static_cast<size_t>(end - begin)};
}

// Whether a terminal obeys the character rather than shows it: control characters, and what cannot be seen
// and turns the text around it round, or joins it.
bool is_control(char32_t code) {
    return code < 0x20 || (code >= 0x7f && code <= 0x9f) || code == 0x61c || code == 0x200e ||
           code == 0x200f || (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069) ||
           code == 0xfeff;
}

std::string escape_of(char byte) {
    switch (byte) {
        case '\t':
            return "\\t";
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\\':
            return "\\\\";
        default:
            char form[8];
            snprintf(form, sizeof form, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
            return form;
    }
}

// The text with each byte that would disturb as an escape, but for the characters to leave alone.
std::string escape(const std::string& text, std::string_view leave_alone) {
    std::string escaped;
    for (size_t at = 0; at < text.size();) {
        const auto [code, length] = character_at(text, at);
        const bool is_harmless = length > 0 && code != '\\' && !is_control(code);
        if (is_harmless || leave_alone.find(text[at]) != std::string_view::npos) {
            escaped.append(text, at, length);
            at += length;
        } else {
            escaped += escape_of(text[at]);
            ++at;
        }
    }
    return escaped;
}

// Columns that the text takes on a terminal: one for each character of UTF-8.
size_t width_of(const std::string& text) {
    return static_cast<size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

}  // namespace

Terminal describe_terminal(int fd) {
    Terminal terminal;
    terminal.is_terminal = isatty(fd) == 1;
    const char* const kind = getenv("TERM");
    const char* const no_colour = getenv("NO_COLOR");
    terminal.colours = terminal.is_terminal && kind != nullptr && std::string(kind) != "dumb" &&
                       (no_colour == nullptr || *no_colour == '\0');
    return terminal;
}

std::string paint(const Terminal& terminal, Colour colour, const std::string& text) {
    static const char* const codes[] = {"", "1", "2", "31", "33", "32", "36"};
    if (!terminal.colours || colour == Colour::NONE) {
        return text;
    }
    return std::string("\033[") + codes[static_cast<int>(colour)] + "m" + text + "\033[0m";
}

bool is_utf8(const std::string& text) {
    size_t length = 0;
    for (size_t at = 0; at < text.size(); at += length) {
        length = character_at(text, at).length;
        if (length == 0) {
            return false;
        }
    }
    return true;
}

std::string one_line(const std::string& text) {
    return escape(text, "");
}

std::string without_controls(const std::string& text) {
    return escape(text, "\n\t\\");
}

std::string counted(size_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string format_table(const Terminal& terminal, const std::vector<Column>& columns,
                         const std::vector<Row>& rows) {
    std::vector<Row> lines(1);
    lines[0].colour = Colour::BOLD;
    for (const Column& column : columns) {
        lines[0].cells.push_back(column.title);
    }
    lines.insert(lines.end(), rows.begin(), rows.end());
    std::vector<size_t> widths(columns.size());
    for (Row& line : lines) {
        for (size_t i = 0; i < columns.size(); ++i) {
            line.cells[i] = one_line(line.cells[i]);
            widths[i] = std::max(widths[i], width_of(line.cells[i]));
        }
    }
    const char* const separator = terminal.is_terminal ? "  " : "\t";
    std::string text;
    for (const Row& line : lines) {
        std::string cells;
        for (size_t i = 0; i < columns.size(); ++i) {
            const std::string& cell = line.cells[i];
            const std::string blanks(terminal.is_terminal ? widths[i] - width_of(cell) : 0, ' ');
            cells += i == 0 ? "" : separator;
            cells += columns[i].is_number ? blanks + cell : cell + blanks;
        }
        if (terminal.is_terminal) {
            cells.erase(cells.find_last_not_of(' ') + 1);
        }
        text += paint(terminal, line.colour, cells) + "\n";
    }
    return text;
}

}  // namespace tools
