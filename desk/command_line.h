// What the command lines of a desk's programs have in common: --version, completions in the shell, and one
// line that says what is right when a word is wrong.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace desk {

// A command line that asks for something that there is not; its text says what there is.
class WrongUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The words that a value or an operand may be, by its name in the help. FILE and DIR need none.
using ValueWords = std::map<std::string, std::vector<std::string>>;

// The release that this program is of.
extern const char VERSION[];

// Reads the words behind the program's name. Returns none when all were taken. Otherwise the text was asked
// for and is to be printed: a help, the version, or what can stand in place of the last word behind
// --complete. Throws WrongUsage.
std::optional<std::string> parse(CLI::App* app, const std::vector<std::string>& words,
                                 const ValueWords& value_words = {});

// "no client dsm_tpp; did you mean dsm_tp?", or all that there are, or where they are listed, when none is
// near.
std::string no_such(const std::string& kind, const std::string& what, const std::vector<std::string>& known);

}  // namespace desk
