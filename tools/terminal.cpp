// Printing for people and for programs.
#include "tools/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <locale>
#include <string_view>

namespace tools {
namespace {

constexpr std::string_view SEPARATOR = "  ";  // of columns on a terminal

// A character of a text; of length 0 where the text is no UTF-8.
struct Character {
    char32_t code;
    size_t length;
};

// The character at the place, in whatever locale.
Character character_at(std::string_view text, size_t at) {
    if (static_cast<unsigned char>(text[at]) < 0x80) {
        return {static_cast<char32_t>(text[at]), 1};
    }
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

// Columns that the first character of a text takes on a terminal, in a locale of UTF-8.
size_t width_of(const Character& character) {
    const int width = wcwidth(static_cast<wchar_t>(character.code));
    return width < 0 ? 1 : static_cast<size_t>(width);
}

// The length of the text's beginning of that width at most.
size_t length_of(const std::string& text, size_t width) {
    size_t at = 0;
    while (at < text.size()) {
        const Character character = character_at(text, at);
        if (width_of(character) > width) {
            break;
        }
        width -= width_of(character);
        at += std::max<size_t>(character.length, 1);
    }
    return at;
}

size_t width_of(const std::string& text) {
    size_t width = 0;
    for (size_t at = 0; at < text.size();) {
        const Character character = character_at(text, at);
        width += width_of(character);
        at += std::max<size_t>(character.length, 1);
    }
    return width;
}

// The text's beginning, of that width at most.
std::string cut_to(const std::string& text, size_t width) {
    return width_of(text) <= width ? text : text.substr(0, length_of(text, width - 1)) + "…";
}

// Makes the columns' widths fit the terminal's. A column of width 0 is not there.
void fit(const Terminal& terminal, const std::vector<Column>& columns, std::vector<size_t>* widths) {
    constexpr size_t READABLE = 40;  // of a cell that is cut, before other columns are dropped for it
    constexpr size_t LEAST = 8;
    const auto total = [&](size_t cut_most) {
        size_t sum = 0;
        for (size_t i = 0; i < columns.size(); ++i) {
            const size_t width = columns[i].fit == Fit::CUT ? std::min((*widths)[i], cut_most) : (*widths)[i];
            sum += width == 0 ? 0 : width + SEPARATOR.size();
        }
        return sum - SEPARATOR.size();
    };
    for (size_t i = columns.size(); i-- > 0;) {
        if (columns[i].fit == Fit::DROPPED && total(READABLE) > terminal.width) {
            (*widths)[i] = 0;
        }
    }
    while (total(SIZE_MAX) > terminal.width) {
        size_t widest = columns.size();
        for (size_t i = 0; i < columns.size(); ++i) {
            const bool is_wider = widest == columns.size() || (*widths)[i] >= (*widths)[widest];
            widest = columns[i].fit == Fit::CUT && (*widths)[i] > LEAST && is_wider ? i : widest;
        }
        if (widest == columns.size()) {
            break;
        }
        --(*widths)[widest];
    }
}

}  // namespace

Terminal describe_terminal(int fd) {
    Terminal terminal;
    terminal.is_terminal = isatty(fd) == 1;
    winsize size = {};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        terminal.width = size.ws_col;
    }
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

bool is_utf8(std::string_view text) {
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

void sort_rows(Table* table, size_t column) {
    const Holds holds = table->columns[column].holds;
    const auto value_of = [&](const Row& row) { return strtoll(row.cells[column].c_str(), nullptr, 10); };
    std::stable_sort(table->rows.begin(), table->rows.end(), [&](const Row& left, const Row& right) {
        switch (holds) {
            case Holds::NUMBER:
                return value_of(left) < value_of(right);
            case Holds::COUNT:
                return value_of(left) > value_of(right);
            default:
                return left.cells[column] < right.cells[column];
        }
    });
}

std::string format_table(const Terminal& terminal, const Table& table) {
    const std::vector<Column>& columns = table.columns;
    std::vector<Row> lines(1);
    lines[0].colour = Colour::BOLD;
    for (const Column& column : columns) {
        lines[0].cells.push_back(column.title);
    }
    lines.insert(lines.end(), table.rows.begin(), table.rows.end());
    std::vector<size_t> widths(columns.size());
    for (Row& line : lines) {
        for (size_t i = 0; i < columns.size(); ++i) {
            line.cells[i] = one_line(line.cells[i]);
            widths[i] = std::max(widths[i], width_of(line.cells[i]));
        }
    }
    if (terminal.is_terminal) {
        for (size_t i = 0; i < columns.size(); ++i) {
            const auto is_empty = [&](const Row& row) { return row.cells[i].empty(); };
            if (std::all_of(lines.begin() + 1, lines.end(), is_empty) && lines.size() > 1) {
                widths[i] = 0;
            }
        }
        fit(terminal, columns, &widths);
    }
    std::string text;
    for (const Row& line : lines) {
        std::string cells;
        for (size_t i = 0; i < columns.size(); ++i) {
            if (!terminal.is_terminal) {
                cells += (i == 0 ? "" : "\t") + line.cells[i];
            } else if (widths[i] > 0) {
                const std::string cell = cut_to(line.cells[i], widths[i]);
                const std::string blanks(widths[i] - width_of(cell), ' ');
                cells += cells.empty() ? "" : SEPARATOR;
                cells += columns[i].holds == Holds::TEXT ? cell + blanks : blanks + cell;
            }
        }
        if (terminal.is_terminal) {
            cells.erase(cells.find_last_not_of(' ') + 1);
        }
        text += paint(terminal, line.colour, cells) + "\n";
    }
    return text;
}

}  // namespace tools
