// How the tools print: for a person on a terminal, tab-separated for a program elsewhere.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tools {

// Colours as a terminal knows them.
enum class Colour { NONE, BOLD, DIM, RED, YELLOW, GREEN, CYAN };

// What a stream is.
struct Terminal {
    bool is_terminal = false;  // columns are aligned there, and separated by tabs elsewhere
    bool colours = false;      // on a terminal only, and not where NO_COLOR is set or TERM is "dumb"
    size_t width = 80;         // in characters
};
Terminal describe_terminal(int fd = 1);

// The text in the colour, where there are colours.
std::string paint(const Terminal& terminal, Colour colour, const std::string& text);

// Whether the text is UTF-8 throughout.
bool is_utf8(std::string_view text);

// The text on one line: tab, line ends and backslash as "\t", "\n", "\r" and "\\", the bytes of other control
// characters, of those that turn text round, and those that are no UTF-8, as "\x1b". What a file or a driver
// wrote moves no cursor and adds no column.
std::string one_line(const std::string& text);

// The text with its line ends and tabs, other control characters and what is no UTF-8 as "\x1b".
std::string without_controls(const std::string& text);

// The number with what it counts, in the plural but for 1.
std::string counted(size_t number, const char* what);

// What becomes of a column where the terminal is not wide enough for all.
enum class Fit {
    KEPT,
    CUT,      // each cell to its beginning
    DROPPED,  // first of all, and the last such column first
};

enum class Holds {
    TEXT,
    NUMBER,  // aligned to the right, and sorted by its value
    COUNT,   // likewise, the largest first
};

struct Column {
    std::string title;
    Holds holds = Holds::TEXT;
    Fit fit = Fit::KEPT;
};

// One row of a table; the texts may hold anything.
struct Row {
    std::vector<std::string> cells;  // one for each column
    Colour colour = Colour::NONE;
};

struct Table {
    std::vector<Column> columns;
    std::vector<Row> rows;
};

// Sorts the rows by the column of that index; equal ones keep their order.
void sort_rows(Table* table, size_t column);

// The table as text: a line of titles and a line for each row. On a terminal it fits the width as far as its
// columns can be cut and dropped, and has no empty columns; elsewhere it is whole.
std::string format_table(const Terminal& terminal, const Table& table);

}  // namespace tools
