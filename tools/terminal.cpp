// Printing for people and for programs.
#include "tools/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace tools {
namespace {

// Bytes of the character of UTF-8 at the place; 0 when there is none.
size_t utf8_length(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) {
        return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U;
    };
    const unsigned first = byte(0);
    const size_t length = first < 0x80 ? 1 : first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    // Longer forms than needed, halves of pairs, and what lies beyond the last character.
    const unsigned start = first << 8 | byte(1);
    const bool is_wrong = (length == 3 && (start < 0xe0a0 || (start >= 0xeda0 && start < 0xee00))) ||
                          (length == 4 && (start < 0xf090 || start >= 0xf490));
    return is_wrong ? 0 : length;
}

// Whether the character of that length is one that a terminal obeys rather than shows: a control character,
// also one of two bytes, or one that turns the text around it round.
bool is_control(const std::string& text, size_t at, size_t length) {
    const std::string character = text.substr(at, length);
    if (length < 3) {
        return character < " " || character == "\x7f" ||
               (character >= "\xc2\x80" && character < "\xc2\xa0") || character == "\u061c";
    }
    return character == "\u200e" || character == "\u200f" ||
           (character >= "\u202a" && character <= "\u202e") ||
           (character >= "\u2066" && character <= "\u2069") || character == "\ufeff";  // unseen
}

std::string escape(const std::string& text, const char* kept, bool escape_backslash) {
    const std::string kept_text = kept;
    std::string escaped;
    for (size_t at = 0; at < text.size();) {
        const char character = text[at];
        const auto code = static_cast<unsigned char>(character);
        const size_t length = utf8_length(text, at);
        const bool is_harmless = length > 0 && !is_control(text, at, length);
        if (character == '\\' && escape_backslash) {
            escaped += "\\\\";
        } else if (is_harmless || (length == 1 && kept_text.find(character) != std::string::npos)) {
            escaped.append(text, at, length);
            at += length - 1;
        } else if (character == '\t') {
            escaped += "\\t";
        } else if (character == '\n') {
            escaped += "\\n";
        } else if (character == '\r') {
            escaped += "\\r";
        } else {
            char form[8];
            snprintf(form, sizeof form, "\\x%02x", static_cast<unsigned>(code));
            escaped += form;
        }
        ++at;
    }
    return escaped;
}

// Columns that the text takes on a terminal: one for each character of UTF-8.
size_t width_of(const std::string& text) {
    return static_cast<size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string tabbed(const std::vector<std::string>& cells) {
    std::string line;
    for (const std::string& cell : cells) {
        line += (line.empty() && &cell == &cells.front() ? "" : "\t") + one_line(cell);
    }
    return line + "\n";
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
    size_t at = 0;
    while (at < text.size()) {
        const size_t length = utf8_length(text, at);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

std::string one_line(const std::string& text) {
    return escape(text, "", true);
}

std::string without_controls(const std::string& text) {
    return escape(text, "\n\t", false);
}

std::string counted(size_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string format_table(const Terminal& terminal, const std::vector<Column>& columns,
                         const std::vector<Row>& rows) {
    std::vector<std::string> titles;
    std::vector<size_t> widths;
    for (const Column& column : columns) {
        titles.push_back(column.title);
        widths.push_back(width_of(column.title));
    }
    if (!terminal.is_terminal) {
        std::string text = tabbed(titles);
        for (const Row& row : rows) {
            text += tabbed(row.cells);
        }
        return text;
    }
    for (const Row& row : rows) {
        for (size_t i = 0; i < columns.size(); ++i) {
            widths[i] = std::max(widths[i], width_of(one_line(row.cells[i])));
        }
    }
    const auto aligned = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (size_t i = 0; i < columns.size(); ++i) {
            const std::string cell = one_line(cells[i]);
            const std::string blanks(widths[i] - width_of(cell), ' ');
            line += i == 0 ? "" : "  ";
            line += columns[i].is_number ? blanks + cell : cell + blanks;
        }
        return line.substr(0, line.find_last_not_of(' ') + 1);
    };
    std::string text = paint(terminal, Colour::BOLD, aligned(titles)) + "\n";
    for (const Row& row : rows) {
        text += paint(terminal, row.colour, aligned(row.cells)) + "\n";
    }
    return text;
}

}  // namespace tools
