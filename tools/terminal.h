// How the tools print: for a person on a terminal, tab-separated for a program elsewhere.
#pragma once

#include <string>
#include <vector>

namespace tools {

// Colours as a terminal knows them.
enum class Colour { NONE, BOLD, DIM, RED, YELLOW, GREEN, CYAN };

// What a stream is.
struct Terminal {
    bool is_terminal = false;  // columns are aligned there, and separated by tabs elsewhere
    bool colours = false;      // on a terminal only, and not where NO_COLOR is set or TERM is "dumb"
};
Terminal describe_terminal(int fd = 1);

// The text in the colour, where there are colours.
std::string paint(const Terminal& terminal, Colour colour, const std::string& text);

// Whether the text is UTF-8 throughout.
bool is_utf8(const std::string& text);

// The text on one line: tab, line ends and backslash as "\t", "\n", "\r" and "\\", the bytes of other control
// characters, of those that turn text round, and those that are no UTF-8, as "\x1b". What a file or a driver
// wrote moves no cursor and adds no column.
std::string one_line(const std::string& text);

// The text with its line ends and tabs, other control characters and what is no UTF-8 as "\x1b".
std::string without_controls(const std::string& text);

// The number with what it counts, in the plural but for 1.
std::string counted(size_t number, const char* what);

struct Column {
    std::string title;
    bool is_number = false;  // aligned to the right
};

// One row of a table; the texts may hold anything.
struct Row {
    std::vector<std::string> cells;  // one for each column
    Colour colour = Colour::NONE;
};

// The table as text: a line of titles and a line for each row.
std::string format_table(const Terminal& terminal, const std::vector<Column>& columns,
                         const std::vector<Row>& rows);

}  // namespace tools
