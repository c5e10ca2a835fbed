// Printing for people and for programs.
#include "tools/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace tools {
namespace {

std::string escape(const std::string& text, const char* kept, bool escape_backslash) {
    const std::string kept_text = kept;
    std::string escaped;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '\\' && escape_backslash) {
            escaped += "\\\\";
        } else if ((code >= ' ' && code != 0x7f) || kept_text.find(character) != std::string::npos) {
            escaped += character;
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

Terminal describe_terminal() {
    Terminal terminal;
    terminal.is_terminal = isatty(STDOUT_FILENO) == 1;
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

std::string one_line(const std::string& text) {
    return escape(text, "", true);
}

std::string without_controls(const std::string& text) {
    return escape(text, "\n\t", false);
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
