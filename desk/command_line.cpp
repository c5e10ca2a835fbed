// The errors of command lines, and their completion.
#include "desk/command_line.h"

#include <algorithm>
#include <sstream>

#include <CLI/CLI.hpp>

#include "desk/near_word.h"

namespace desk {

const char VERSION[] = DMD_VERSION;

namespace {

// So many names are told in one line; more of them there are only of clients.
constexpr size_t LISTED_MAX = 16;
constexpr char COMPLETE[] = "--complete";
// What the scripts in this folder take for all files, or all folders.
constexpr char ANY_FILE[] = ":files\n";
constexpr char ANY_FOLDER[] = ":folders\n";

bool is_option(const std::string& word) {
    return word.size() > 1 && word[0] == '-' && word != "--";
}

// As "--name=value".
bool has_value(const std::string& word) {
    return word.find('=') != std::string::npos;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

std::vector<std::string> option_names(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::vector<std::string> command_names(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* const command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

// The command that the words begin with, or the program itself.
const CLI::App& command_of(const CLI::App& app, const std::vector<std::string>& words) {
    for (const CLI::App* const command : app.get_subcommands({})) {
        if (!words.empty() && words[0] == command->get_name()) {
            return *command;
        }
    }
    return app;
}

// Finds an option by a word such as "--name", "--name=value" or "-n".
const CLI::Option* option_of(const CLI::App& command, const std::string& word) {
    return command.get_option_no_throw(word.substr(0, word.find('=')));
}

bool takes_value(const CLI::Option* option) {
    return option != nullptr && option->get_items_expected_max() > 0;
}

// What can stand for a value or an operand of that name.
std::string value_candidates(const std::string& name, const ValueWords& value_words) {
    const auto words = value_words.find(name);
    if (words != value_words.end()) {
        std::string lines;
        for (const std::string& word : words->second) {
            lines += word + "\n";
        }
        return lines;
    }
    return name == "FILE" || name == "PATH" ? ANY_FILE : name == "DIR" ? ANY_FOLDER : "";
}

// What the help calls that value of an option, from 0: "NUMBER" is 1 of "CLIENT NUMBER".
std::string value_name(const CLI::Option& option, int value) {
    std::istringstream names(option.get_type_name());
    std::string name;
    for (int i = 0; i <= value; ++i) {
        names >> name;
    }
    return name;
}

// The option's or command's name and the first line about it, separated by a tab.
std::string candidate(const std::string& name, const std::string& description) {
    return name + "\t" + description.substr(0, description.find('\n')) + "\n";
}

// A line for each word that can stand in place of the last one, or of what stands behind its "=".
std::string complete(const CLI::App& app, std::vector<std::string> words, const ValueWords& value_words) {
    const std::string last = words.empty() ? "" : words.back();
    words.resize(words.empty() ? 0 : words.size() - 1);
    const CLI::App& command = command_of(app, words);
    const CLI::Option* awaiting = nullptr;  // the option that the last word is a value of
    int values = 0;                         // that it has so far
    size_t operands = 0;
    for (size_t i = &command == &app ? 0 : 1; i < words.size(); ++i) {
        if (words[i] == "--") {
            return ANY_FILE;
        }
        if (awaiting != nullptr) {
            ++values;
            awaiting = values < awaiting->get_type_size_max() ? awaiting : nullptr;
        } else if (is_option(words[i])) {
            const CLI::Option* const option = option_of(command, words[i]);
            awaiting = takes_value(option) && !has_value(words[i]) ? option : nullptr;
            values = 0;
        } else {
            ++operands;
        }
    }
    if (is_option(last) && has_value(last)) {
        awaiting = option_of(command, last);
    }
    if (awaiting != nullptr) {
        return value_candidates(value_name(*awaiting, values), value_words);
    }
    std::string lines;
    if (!last.empty() && last[0] == '-') {
        for (const CLI::Option* const option : command.get_options()) {
            for (const std::string& name : option->get_lnames()) {
                lines += candidate("--" + name, option->get_description());
            }
        }
        return lines;
    }
    for (const CLI::App* const next : command.get_subcommands({})) {
        lines += candidate(next->get_name(), next->get_description());
    }
    size_t index = 0;
    for (const CLI::Option* const option : command.get_options()) {
        if (option->get_positional() && (index++ == operands || option->get_items_expected_max() > 1)) {
            lines += value_candidates(option->get_name(true), value_words);
        }
    }
    return lines;
}

// What is wrong about the words, in one line.
std::string explain(const CLI::App& app, const std::vector<std::string>& words,
                    const CLI::ParseError& error) {
    const CLI::App& command = command_of(app, words);
    const std::vector<std::string> commands = command_names(app);
    const std::string name = app.get_name() + (&command == &app ? "" : " " + command.get_name());
    const std::string more = " (" + name + " --help tells what there is)";
    const std::vector<std::string> surplus = app.remaining(true);
    // What follows on an unknown option may be its value.
    const auto option = std::find_if(surplus.begin(), surplus.end(), is_option);
    if (option != surplus.end()) {
        const std::string word = option->substr(0, option->find('='));
        const auto takes_it = [&](const CLI::App* other) { return option_of(*other, word) != nullptr; };
        const std::vector<const CLI::App*> others = app.get_subcommands({});
        return (&command == &app && std::any_of(others.begin(), others.end(), takes_it)
                    ? "option " + word + " stands behind the command"
                    : no_such("option", word, option_names(command))) +
               more;
    }
    if (!commands.empty() && &command == &app) {
        return (words.empty() ? "no command; there are " + joined(commands)
                              : no_such("command", words[0], commands)) +
               more;
    }
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        const auto late = std::find_if(words.begin(), words.end(), [&](const std::string& word) {
            return is_option(word) && option_of(command, word) != nullptr;
        });
        return (late != words.end() ? "option " + *late + " stands before the operands"
                : command.get_footer().find("'--'") != std::string::npos
                    ? "too many operands; what it runs, or passes on, stands behind '--'"
                    : "too many operands") +
               more;
    }
    return error.what() + more;
}

}  // namespace

std::string no_such(const std::string& kind, const std::string& what, const std::vector<std::string>& known) {
    const std::string meant = did_you_mean(what, known);
    const std::string all = known.size() <= LISTED_MAX
                                ? "; there are " + joined(known)
                                : "; dmd-config-check --clients lists the " + std::to_string(known.size());
    return "no " + kind + " " + (what.empty() ? "''" : what) + (meant.empty() ? all : meant);
}

std::optional<std::string> parse(CLI::App* app, const std::vector<std::string>& words,
                                 const ValueWords& value_words) {
    app->set_version_flag("--version", app->get_name() + " " + VERSION, "Print the version");
    if (!words.empty() && words[0] == COMPLETE) {
        return complete(*app, {words.begin() + 1, words.end()}, value_words);
    }
    try {
        app->parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::CallForVersion& version) {
        return std::string(version.what()) + "\n";
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app->help();
        }
        throw WrongUsage(explain(*app, words, error));
    }
    return std::nullopt;
}

}  // namespace desk
