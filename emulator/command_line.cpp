// The commands of `phone`, their options and operands, and what their help says.
#include "emulator/command_line.h"

#include <algorithm>
#include <cstdio>

#include <CLI/CLI.hpp>

#include "emulator/key_words.h"
#include "emulator/refusal.h"

namespace phone {
namespace {

constexpr uint64_t DATA_SIZE_MAX = uint64_t{1} << 40;

enum class Count { ONE, AT_MOST_ONE, AT_LEAST_ONE };

struct Operand {
    const char* name;
    const char* description;
    Count count = Count::ONE;
};

// Where a command runs what stands after "--", if it takes that. A new phone also takes options.
enum class Kind { RUNS_IN_A_NEW_PHONE, RUNS_IN_THE_RUNNING_ONE, RUNS_NOTHING };

struct Command {
    const char* name;
    const char* description;
    Kind kind;
    std::vector<Operand> operands;
    const char* footer;
};

const Operand CLIENT = {"CLIENT", "Name of the client, as docs/configuration.md lists them"};

const Command commands[] = {
    {"boot",
     "Boot a phone with the daemon in the foreground",
     Kind::RUNS_IN_A_NEW_PHONE,
     {},
     "The daemon's log goes to the terminal, and Ctrl-C ends the phone. Put options of the daemon after "
     "'--'.\n\n"
     "Examples:\n"
     "  phone boot\n"
     "  phone boot --data /tmp/phone              the reports stay in /tmp/phone/kvdx_logs/dmd_log\n"
     "  phone boot --config my.conf -- --debug    a configuration of your own, every message of the "
     "daemon\n"},
    {"run",
     "Run a command in a phone of its own",
     Kind::RUNS_IN_A_NEW_PHONE,
     {},
     "Put the command after '--'. Its exit status becomes that of phone.\n\n"
     "Examples:\n"
     "  phone run -- ls -l /dev /data\n"
     "  phone run --bind /home/me/tests -- /home/me/tests/try-driver\n"},
    {"shell",
     "A shell in the running phone",
     Kind::RUNS_IN_THE_RUNNING_ONE,
     {},
     "To run a command instead, put it after '--'.\n\n"
     "Examples:\n"
     "  phone shell\n"
     "  phone shell -- ls -lR /data\n"},
    {"log-dir",
     "Print where the reports are; on a terminal, list them too",
     Kind::RUNS_NOTHING,
     {},
     "Examples:\n"
     "  phone log-dir\n"
     "  dmd-report \"$(phone log-dir)\"\n"},
    {"report",
     "A driver reports an error",
     Kind::RUNS_NOTHING,
     {CLIENT, {"ERROR", "Number of the error"}, {"TEXT", "What the driver says"}},
     "The daemon reports an error that its configuration has a trigger for, and ignores any other.\n\n"
     "Examples:\n"
     "  phone report dsm_tp 20002 'no answer from the controller'\n"
     "  phone report dsm_wifi 7 \"$(cat firmware.log)\"\n"},
    {"state",
     "Set the state that a poll of a client returns",
     Kind::RUNS_NOTHING,
     {CLIENT, {"NUMBER", "Its state from now on"}},
     "The daemon asks for it once in each period, if the client has a poll section. It stays until you set "
     "another.\n\n"
     "Example:\n"
     "  phone state dsm_pmu_coul 1\n"},
    {"command",
     "An application asks the daemon for a dump",
     Kind::RUNS_NOTHING,
     {CLIENT,
      {"SWITCH", "The running test switch: on or off"},
      {"NUMBER", "Error number that the report shows"}},
     "Example:\n"
     "  phone command dsm_lcd on 20100\n"},
    {"key",
     "Somebody presses the phone's keys",
     Kind::RUNS_NOTHING,
     {{"WORD", KEY_WORD_FORMS, Count::AT_LEAST_ONE}},
     "The combinations that the daemon knows are in docs/forced-dumps.md.\n\n"
     "Examples:\n"
     "  phone key up down up         one after the other\n"
     "  phone key down+ up up down-  two while a third is held\n"},
    {"property",
     "Print or set a system property",
     Kind::RUNS_NOTHING,
     {{"NAME", "Name of the property"}, {"VALUE", "Its new value", Count::AT_MOST_ONE}},
     "Examples:\n"
     "  phone property dev.bootcomplete\n"
     "  phone property debug.frame_dump_enable 1\n"},
};

const Command* find_command(const std::string& name) {
    for (const Command& command : commands) {
        if (name == command.name) {
            return &command;
        }
    }
    return nullptr;
}

std::string command_names() {
    std::string names;
    for (const Command& command : commands) {
        names += (names.empty() ? "" : ", ") + std::string(command.name);
    }
    return names;
}

// What stands after "--" belongs to the command in the phone, whatever it looks like. Takes it from `words`.
std::vector<std::string> take_rest(std::vector<std::string>* words) {
    std::vector<std::string> rest;
    const auto mark = std::find(words->begin(), words->end(), "--");
    if (runs_something(*words) && mark != words->end()) {
        rest.assign(mark + 1, words->end());
        words->erase(mark, words->end());
    }
    return rest;
}

// The empty value of a script's unset variable is not the same as no option.
std::string not_empty(const std::string& value) {
    return value.empty() ? "its value is empty" : "";
}

void add_operand(CLI::App* app, const Operand& operand, Choices* choices) {
    const auto take = [choices](const std::string& word) { choices->words.push_back(word); };
    const auto take_all = [choices](const std::vector<std::string>& words) { choices->words = words; };
    CLI::Option* const option =
        operand.count == Count::AT_LEAST_ONE
            ? app->add_option_function<std::vector<std::string>>(operand.name, take_all, operand.description)
            : app->add_option_function<std::string>(operand.name, take, operand.description);
    option->type_name("")->required(operand.count != Count::AT_MOST_ONE);
    // Whatever stands behind the first operand is one too, even if it looks like an option.
    app->positionals_at_end();
}

void add_boot_options(CLI::App* app, Choices* choices) {
    // A debug build is one that is not commercial; the option says so in a script.
    CLI::Option* const debug = app->add_flag("--debug-build", "Be a debug build (the default)");
    app->add_flag("--commercial", choices->commercial, "Be a commercial build")->excludes(debug);
    app->add_option("--config", choices->config, "Configuration file of the daemon, instead of the sample")
        ->check(not_empty)
        ->type_name("FILE");
    app->add_option("--data", choices->data, "Folder of the desk that becomes /data")
        ->check(not_empty)
        ->type_name("DIR");
    app->add_option("--data-size", choices->data_size, "Size of /data without --data")
        ->check(CLI::Range(uint64_t{1}, DATA_SIZE_MAX))
        ->type_name("BYTES");
    app->add_option("--bind", choices->binds, "Folder of the desk to show too, read-only; repeatable")
        ->allow_extra_args(false)
        ->check(not_empty)
        ->type_name("DIR");
}

void add_command(CLI::App* app, const Command& command, Choices* choices) {
    CLI::App* const added = app->add_subcommand(command.name, command.description);
    added->add_option("--name", choices->name, "Name of the phone, if several run")
        ->check(not_empty)
        ->type_name("NAME");
    if (command.kind == Kind::RUNS_IN_A_NEW_PHONE) {
        add_boot_options(added, choices);
    }
    for (const Operand& operand : command.operands) {
        add_operand(added, operand, choices);
    }
    added->footer(command.footer);
}

}  // namespace

bool runs_something(const std::vector<std::string>& words) {
    const Command* const command = words.empty() ? nullptr : find_command(words[0]);
    return command != nullptr && command->kind != Kind::RUNS_NOTHING;
}

bool read_command_line(const std::string& program, const std::vector<std::string>& words, Choices* choices) {
    std::vector<std::string> parsed = words;
    const std::vector<std::string> rest = take_rest(&parsed);
    CLI::App app("Boots and drives a phone on the desk.", program);
    app.require_subcommand(1);
    app.footer("'phone COMMAND --help' shows what a command takes, with examples. To begin: phone boot\n");
    for (const Command& command : commands) {
        add_command(&app, command, choices);
    }
    const bool has_command = !words.empty() && find_command(words[0]) != nullptr;
    try {
        app.parse(std::vector<std::string>(parsed.rbegin(), parsed.rend()));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error);  // prints the help
            return false;
        }
        if (!has_command) {
            throw Refusal((words.empty() ? "no command" : "'" + words[0] + "' is no command") +
                          ": there are " + command_names() + " (" + program + " --help tells more)");
        }
        const bool is_surplus = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
        throw Refusal(
            (is_surplus ? "too many operands; options stand before them" : std::string(error.what())) + " (" +
            program + " " + words[0] + " --help shows what it takes)");
    }
    choices->program = program;
    choices->command = words[0];
    if (!rest.empty()) {
        choices->words = rest;
    }
    return true;
}

}  // namespace phone
