// The commands of `phone`, their options and operands, and what their help says.
#include "emulator/command_line.h"

#include <algorithm>
#include <cstdio>
#include <functional>

#include <CLI/CLI.hpp>

#include "desk/command_line.h"
#include "emulator/client_names.h"
#include "emulator/key_words.h"

namespace phone {
namespace {

constexpr uint64_t DATA_SIZE_MAX = uint64_t{1} << 40;
constexpr unsigned COUNT_MAX = 100000;
constexpr unsigned EVERY_MS_MAX = 3600000;

enum class Count { ONE, AT_MOST_ONE, AT_LEAST_ONE };

struct Operand {
    const char* name;
    const char* description;
    Count count = Count::ONE;
};

// Whether a command runs what stands after "--".
enum class Kind { RUNS_SOMETHING, RUNS_NOTHING };

struct Command {
    const char* name;
    const char* description;
    Kind kind;
    void (*add_options)(CLI::App* app, Choices* choices);  // beside --name; may be null
    std::vector<Operand> operands;
    const char* footer;
};

const Operand CLIENT = {"CLIENT", "Name of the client; dmd-config-check --clients lists them"};

// The empty value of a script's unset variable is not the same as no option.
std::string not_empty(const std::string& value) {
    return value.empty() ? "its value is empty" : "";
}

// Takes "100M", "64k" or bytes.
std::string read_size(std::string& value) {
    uint64_t size = 0;
    try {
        CLI::AsSizeValue(false)(value);
    } catch (const CLI::ValidationError&) {
        value.clear();
    }
    return CLI::detail::lexical_cast(value, size) && size > 0 && size <= DATA_SIZE_MAX
               ? ""
               : "a size is a number up to 1T, as 65536, 64K or 100M";
}

void add_boot_options(CLI::App* app, Choices* choices) {
    // A debug build is one that is not commercial; the option says so in a script.
    CLI::Option* const debug = app->add_flag("--debug-build", "Be a debug build (the default)");
    app->add_flag("--commercial", choices->commercial, "Be a commercial build")->excludes(debug);
    app->add_option("--config", choices->config, "Configuration file of the daemon, instead of the sample")
        ->check(not_empty)
        ->type_name("FILE");
    app->add_option("--data", choices->data, "Folder of the desk that becomes /data; made if it is missing")
        ->check(not_empty)
        ->type_name("DIR");
    app->add_option("--data-size", choices->data_size, "Size of /data without --data, as 100M")
        ->transform(CLI::Validator(read_size, "", "size"))
        ->type_name("BYTES")
        ->excludes("--data");
    app->add_option("--bind", choices->binds, "Folder of the desk to show too, read-only; repeatable")
        ->allow_extra_args(false)
        ->check(not_empty)
        ->type_name("DIR");
}

// Refuses what is no number in that range.
std::function<std::string(std::string&)> whole_number(unsigned least, unsigned most) {
    return [least, most](const std::string& value) {
        unsigned number = 0;
        return CLI::detail::lexical_cast(value, number) && number >= least && number <= most
                   ? ""
                   : "a whole number from " + std::to_string(least) + " to " + std::to_string(most) +
                         ", not '" + value + "'";
    };
}

void add_outcome_options(CLI::App* app, Choices* choices) {
    app->add_flag("--no-wait", choices->no_wait, "Do not wait to see what becomes of it");
}

void add_report_options(CLI::App* app, Choices* choices) {
    add_outcome_options(app, choices);
    app->add_option("--count", choices->count, "Report it so many times")
        ->transform(CLI::Validator(whole_number(1, COUNT_MAX), "", "count"))
        ->type_name("N");
    app->add_option("--every", choices->every_ms, "Let so many milliseconds pass between two of them")
        ->transform(CLI::Validator(whole_number(0, EVERY_MS_MAX), "", "milliseconds"))
        ->type_name("MS");
}

void add_log_options(CLI::App* app, Choices* choices) {
    app->add_flag("-f,--follow", choices->follow, "Go on as the daemon logs more");
    app->add_option("--client", choices->client, "Only lines that name this client")
        ->check(not_empty)
        ->type_name("CLIENT");
}

const Command commands[] = {
    {"boot",
     "Boot a phone with the daemon in the foreground",
     Kind::RUNS_SOMETHING,
     add_boot_options,
     {},
     "The daemon's log goes to standard output, and Ctrl-C ends the phone. If something kills the daemon, it "
     "starts again\nafter 5 seconds, as on a phone. Put options of the daemon after '--'.\n\n"
     "Examples:\n"
     "  phone boot\n"
     "  phone boot --data /tmp/phone              the reports stay in /tmp/phone/kvdx_logs/dmd_log\n"
     "  phone boot --config my.conf -- --debug    a configuration of your own, every message of the "
     "daemon\n"},
    {"run",
     "Run a command in a phone of its own",
     Kind::RUNS_SOMETHING,
     add_boot_options,
     {},
     "Put the command after '--'. Its exit status becomes that of phone.\n\n"
     "Examples:\n"
     "  phone run -- ls -l /dev /data\n"
     "  phone run --bind /home/me/tests -- /home/me/tests/try-driver\n"},
    {"shell",
     "A shell in the running phone",
     Kind::RUNS_SOMETHING,
     nullptr,
     {},
     "To run a command instead, put it after '--'.\n\n"
     "Examples:\n"
     "  phone shell\n"
     "  phone shell -- ls -lR /data\n"},
    {"log",
     "Print the daemon's log",
     Kind::RUNS_NOTHING,
     add_log_options,
     {},
     "Examples:\n"
     "  phone log -f\n"
     "  phone log --client dsm_tp\n"},
    {"log-dir",
     "Print where the reports are; on a terminal, list them too",
     Kind::RUNS_NOTHING,
     nullptr,
     {},
     "Examples:\n"
     "  phone log-dir\n"
     "  dmd-report \"$(phone log-dir)\"\n"},
    {"report",
     "A driver reports an error",
     Kind::RUNS_NOTHING,
     add_report_options,
     {CLIENT,
      {"ERROR", "Number of the error"},
      {"TEXT", "What the driver says; - reads it from standard input"}},
     "It says what became of it, after two seconds at most.\n\n"
     "Examples:\n"
     "  phone report dsm_tp 20002 'no answer from the controller'\n"
     "  phone report dsm_wifi 7 - < firmware.log\n"
     "  phone report --count 50 --every 1000 dsm_tp 20002 'no answer'\n"},
    {"state",
     "Set the state that a poll of a client returns",
     Kind::RUNS_NOTHING,
     add_outcome_options,
     {CLIENT, {"NUMBER", "Its state from now on"}},
     "The daemon asks for it once in each period, if the client has a poll section. It stays until you set "
     "another.\n\n"
     "Example:\n"
     "  phone state dsm_pmu_coul 1\n"},
    {"command",
     "An application asks the daemon for a dump",
     Kind::RUNS_NOTHING,
     add_outcome_options,
     {CLIENT,
      {"SWITCH", "The running test switch: on or off"},
      {"NUMBER", "Error number that the report shows"}},
     "Example:\n"
     "  phone command dsm_lcd on 20100\n"},
    {"key",
     "Somebody presses the phone's keys",
     Kind::RUNS_NOTHING,
     add_outcome_options,
     {{"WORD", KEY_WORD_FORMS, Count::AT_LEAST_ONE}},
     "The combinations that the daemon knows are in phone(1).\n\n"
     "Examples:\n"
     "  phone key up down up         one after the other\n"
     "  phone key down+ up up down-  two while a third is held\n"},
    {"property",
     "Print or set a system property",
     Kind::RUNS_NOTHING,
     nullptr,
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

void add_command(CLI::App* app, const Command& command, Choices* choices) {
    CLI::App* const added = app->add_subcommand(command.name, command.description);
    added->add_option("--name", choices->name, "Name of the phone, if several run")
        ->check(not_empty)
        ->type_name("NAME");
    if (command.add_options != nullptr) {
        command.add_options(added, choices);
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
    CLI::App app("Boots and drives a phone on the desk.", "phone");
    app.require_subcommand(1);
    app.footer("'phone COMMAND --help' shows what a command takes, with examples. To begin: phone boot\n");
    for (const Command& command : commands) {
        add_command(&app, command, choices);
    }
    const std::vector<std::string> clients(std::begin(CLIENT_NAMES), std::end(CLIENT_NAMES));
    const std::optional<std::string> asked_for = desk::parse(
        &app, parsed, {{"CLIENT", clients}, {"SWITCH", {"on", "off"}}, {"WORD", {"up", "down", "power"}}});
    if (asked_for) {
        fputs(asked_for->c_str(), stdout);
        return false;
    }
    choices->program = program;
    choices->command = words[0];
    if (!rest.empty()) {
        choices->words = rest;
    }
    return true;
}

}  // namespace phone
