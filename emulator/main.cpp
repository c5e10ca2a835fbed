// The phone command.
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "emulator/control_client.h"
#include "emulator/files.h"
#include "emulator/key_words.h"
#include "emulator/phone.h"
#include "emulator/refusal.h"

namespace {

using namespace phone;

// Bytes of a configuration file: far more than the daemon reads of it.
constexpr size_t CONFIG_MAX = 16 * 1024 * 1024;
constexpr char CONFIG_SAMPLE[] = "device_state_monitor.conf";
constexpr char DEFAULT_NAME[] = "phone";
// Where the daemon writes, seen from inside.
constexpr char PHONE_LOG_DIR[] = "/data/kvdx_logs/dmd_log";
constexpr uint64_t DATA_SIZE_MAX = uint64_t{1} << 40;
constexpr int STATUS_FAILED = 1;
// Stands before an operand of a request on its way through the option parser, so that none looks like an
// option.
constexpr char OPERAND_MARK = ' ';

// What the command line says.
struct Choices {
    std::string name;
    bool debug_build = false;
    bool commercial = false;
    std::string config;
    std::string data;
    uint64_t data_size = DATA_SIZE_DEFAULT;
    std::vector<std::string> binds;
    std::vector<std::string> words;  // operands of the command
};

std::string absolute(const std::string& path) {
    char out[PATH_MAX];
    if (realpath(path.c_str(), out) == nullptr) {
        throw refusal_errno("cannot find " + path);
    }
    return out;
}

std::string program_folder() {
    const std::string program = absolute("/proc/self/exe");
    return program.substr(0, program.rfind('/'));
}

std::string socket_name(const Choices& choices) {
    const char* inside = getenv(CONTROL_VARIABLE);
    if (choices.name.empty() && inside != nullptr) {
        return inside;
    }
    return socket_of_phone(choices.name.empty() ? DEFAULT_NAME : choices.name);
}

PhoneOptions phone_options(const Choices& choices) {
    PhoneOptions options;
    options.commercial = choices.commercial;
    const std::string folder = program_folder();
    options.config =
        read_file(choices.config.empty() ? folder + "/" + CONFIG_SAMPLE : choices.config, CONFIG_MAX);
    if (!choices.data.empty()) {
        options.data_dir = absolute(choices.data);
    }
    options.data_size = choices.data_size;
    options.build_dir = folder;
    for (const std::string& shown : choices.binds) {
        options.binds.push_back(absolute(shown));
    }
    // A folder goes before those in it, which are then there already.
    std::sort(options.binds.begin(), options.binds.end());
    return options;
}

int boot(const Choices& choices) {
    PhoneOptions options = phone_options(choices);
    options.socket_name = socket_of_phone(choices.name.empty() ? DEFAULT_NAME : choices.name);
    options.command = {std::string(BUILD_DIR) + "/dmd"};
    options.command.insert(options.command.end(), choices.words.begin(), choices.words.end());
    const std::string name = choices.name.empty() ? "" : " --name " + choices.name;
    printf(
        "A %s build boots; Ctrl-C ends it. From another terminal:\n"
        "  phone report%s dsm_tp 20002 'some text'   a driver reports an error\n"
        "  phone command%s dsm_tp on 20002           an application asks for a dump\n",
        choices.commercial ? "commercial" : "debug", name.c_str(), name.c_str());
    if (!choices.commercial) {
        // On a commercial build nobody watches them.
        printf("  phone key%s up down up                    somebody presses the phone's keys\n",
               name.c_str());
    }
    printf(
        "  phone log-dir%s                           where the reports are\n"
        "  phone shell%s                             a shell in the phone\n",
        name.c_str(), name.c_str());
    fflush(stdout);
    return run_phone(options);
}

int run(const Choices& choices) {
    PhoneOptions options = phone_options(choices);
    options.socket_name =
        socket_of_phone(choices.name.empty() ? "run-" + std::to_string(getpid()) : choices.name);
    options.command = choices.words;
    if (options.command.empty()) {
        throw Refusal("no command to run: give it after '--', as in: phone run -- COMMAND");
    }
    // The phone has another working folder, so a command named by a path is found here.
    if (options.command[0].find('/') != std::string::npos && options.command[0][0] != '/') {
        options.command[0] = absolute(options.command[0]);
    }
    options.command[0] = place_in_phone(options.build_dir, options.command[0]);
    return run_phone(options);
}

// A shell in the running phone, or the command after "--".
[[noreturn]] void shell(const Choices& choices) {
    std::vector<std::string> command = choices.words;
    if (command.empty()) {
        // Without a history file: /data holds what the daemon wrote and nothing else.
        command = {"/usr/bin/env", "HISTFILE=", "PS1=phone# ", "/bin/sh"};
        if (access("/bin/bash", X_OK) == 0) {
            command.back() = "/bin/bash";
            command.emplace_back("--norc");
        }
    }
    run_in_phone(socket_name(choices), command);
}

std::string ask(const Choices& choices, const std::vector<std::string>& words) {
    std::string answer;
    if (!request(socket_name(choices), words, &answer)) {
        throw Refusal(answer);
    }
    return answer;
}

// A command that is one request to a running phone.
int ask_and_print(const std::string& name, const Choices& choices) {
    std::vector<std::string> words = {name};
    words.insert(words.end(), choices.words.begin(), choices.words.end());
    const std::string answer = ask(choices, words);
    if (!answer.empty()) {
        printf("%s\n", answer.c_str());
    }
    return 0;
}

int press_keys(const Choices& choices) {
    const std::vector<Words> requests = key_requests(choices.words);
    for (const Words& words : requests) {
        if (ask(choices, {"opened", words[1]}) == "0") {
            throw Refusal("nobody has " + words[1] +
                          " open: dmd opens the devices that have a volume key when it starts, none on a "
                          "commercial build, "
                          "and lets an unplugged one go");
        }
    }
    for (const Words& words : requests) {
        ask(choices, words);
    }
    return 0;
}

int log_dir(const Choices& choices) {
    std::string folder = ask(choices, {"log-dir"});
    if (folder.empty()) {
        folder = "/proc/" + std::to_string(first_process_of(socket_name(choices))) + "/root" + PHONE_LOG_DIR;
    }
    printf("%s\n", folder.c_str());
    fflush(stdout);
    if (isatty(STDOUT_FILENO) == 0) {
        return 0;
    }
    if (access(folder.c_str(), F_OK) != 0) {
        printf("(nothing is there yet)\n");
        return 0;
    }
    execlp("ls", "ls", "-l", folder.c_str(), nullptr);
    throw refusal_errno("cannot run ls");
}

// Whether the words of the command line run something in a phone.
bool runs_something(const std::vector<std::string>& words) {
    return !words.empty() && (words[0] == "boot" || words[0] == "run" || words[0] == "shell");
}

// What stands after "--" belongs to the command in the phone, whatever it looks like. Takes it from `words`.
std::vector<std::string> take_command(std::vector<std::string>* words) {
    std::vector<std::string> rest;
    const auto mark = std::find(words->begin(), words->end(), "--");
    if (runs_something(*words) && mark != words->end()) {
        rest.assign(mark + 1, words->end());
        words->erase(mark, words->end());
    }
    return rest;
}

// The operands of a request are what they are, whatever they look like: from the first word on that is no
// option they are marked, and so is what stands after "--".
void mark_operands(std::vector<std::string>* words) {
    if (words->empty() || runs_something(*words)) {
        return;
    }
    size_t i = 1;
    while (i < words->size() && (*words)[i][0] == '-' && (*words)[i] != "--") {
        i += (*words)[i] == "--name" ? 2 : 1;
    }
    if (i < words->size() && (*words)[i] == "--") {
        words->erase(words->begin() + static_cast<ptrdiff_t>(i));
    }
    for (; i < words->size(); ++i) {
        (*words)[i].insert(0, 1, OPERAND_MARK);
    }
}

// The empty value of a script's unset variable is not the same as no option.
std::string not_empty(const std::string& value) {
    return value.empty() ? "its value is empty" : "";
}

CLI::App* add_command(CLI::App* app, Choices* choices, const char* name, const char* description) {
    CLI::App* command = app->add_subcommand(name, description);
    command->add_option("--name", choices->name, "Name of the phone, where several run")
        ->check(not_empty)
        ->type_name("NAME");
    return command;
}

CLI::Option* add_operand(CLI::App* command, Choices* choices, const char* name, const char* description) {
    const auto take = [choices](const std::string& word) { choices->words.push_back(word.substr(1)); };
    return command->add_option_function<std::string>(name, take, description)->required();
}

void add_operands(CLI::App* command, Choices* choices, const char* name, const char* description) {
    const auto take = [choices](const std::vector<std::string>& words) {
        for (const std::string& word : words) {
            choices->words.push_back(word.substr(1));
        }
    };
    command->add_option_function<std::vector<std::string>>(name, take, description)->required();
}

void add_boot_options(CLI::App* command, Choices* choices) {
    CLI::Option* debug =
        command->add_flag("--debug-build", choices->debug_build, "Be a debug build (the default)");
    command->add_flag("--commercial", choices->commercial, "Be a commercial build")->excludes(debug);
    command
        ->add_option("--config", choices->config, "Configuration file of the daemon, in place of the sample")
        ->check(not_empty)
        ->type_name("FILE");
    command->add_option("--data", choices->data, "Folder of the desk that becomes /data")
        ->check(not_empty)
        ->type_name("DIR");
    command->add_option("--data-size", choices->data_size, "Size of /data without --data")
        ->check(CLI::Range(uint64_t{1}, DATA_SIZE_MAX))
        ->type_name("BYTES");
    command->add_option("--bind", choices->binds, "Another folder of the desk to show, read-only; repeatable")
        ->allow_extra_args(false)
        ->check(not_empty)
        ->type_name("DIR");
}

// Descriptors 0 to 2 are never anything else than the standard ones.
void fill_standard_descriptors() {
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    }
    if (fd > STDERR_FILENO) {
        close(fd);
    }
}

int do_command_line(std::vector<std::string> words) {
    const std::vector<std::string> command_words = take_command(&words);
    mark_operands(&words);
    Choices choices;
    CLI::App app("Boots and drives a phone on the desk.", "phone");
    app.require_subcommand(1);
    CLI::App* boot_command =
        add_command(&app, &choices, "boot", "Boot a phone with the daemon in the foreground");
    add_boot_options(boot_command, &choices);
    boot_command->footer("Options of the daemon stand after '--'.");
    CLI::App* run_command = add_command(&app, &choices, "run", "Run a command in a phone of its own");
    add_boot_options(run_command, &choices);
    run_command->footer("The command stands after '--': phone run -- COMMAND...");
    CLI::App* shell_command = add_command(&app, &choices, "shell", "A shell in the running phone");
    shell_command->footer("A command to run in its place stands after '--'.");
    CLI::App* log_dir_command =
        add_command(&app, &choices, "log-dir", "Print where the reports are; list them on a terminal");
    CLI::App* report = add_command(&app, &choices, "report", "A driver reports an error");
    add_operand(report, &choices, "CLIENT", "Name of the client");
    add_operand(report, &choices, "ERROR", "Number of the error");
    add_operand(report, &choices, "TEXT", "What the driver says");
    CLI::App* state = add_command(&app, &choices, "state", "Set the state that a poll of a client returns");
    add_operand(state, &choices, "CLIENT", "Name of the client");
    add_operand(state, &choices, "NUMBER", "Its state from now on");
    CLI::App* command = add_command(&app, &choices, "command", "An application asks the daemon for a dump");
    add_operand(command, &choices, "CLIENT", "Name of the client");
    add_operand(command, &choices, "SWITCH", "The running test switch: on or off");
    add_operand(command, &choices, "NUMBER", "Number of the error");
    CLI::App* key_command = add_command(&app, &choices, "key", "Somebody presses the phone's keys");
    add_operands(key_command, &choices, "WORD", KEY_WORD_FORMS);
    CLI::App* property = add_command(&app, &choices, "property", "Print or set a system property");
    add_operand(property, &choices, "NAME", "Name of the property");
    add_operand(property, &choices, "VALUE", "Its new value")->required(false);
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);  // prints the help
        }
        throw Refusal(std::string(error.what()) + " (--help lists what there is)");
    }
    if (!command_words.empty()) {
        choices.words = command_words;
    }
    if (boot_command->parsed()) {
        return boot(choices);
    }
    if (run_command->parsed()) {
        return run(choices);
    }
    if (shell_command->parsed()) {
        shell(choices);
    }
    if (log_dir_command->parsed()) {
        return log_dir(choices);
    }
    if (key_command->parsed()) {
        return press_keys(choices);
    }
    return ask_and_print(app.get_subcommands()[0]->get_name(), choices);
}

}  // namespace

int main(int argc, char** argv) {
    bool needs_phone = false;
    try {
        fill_standard_descriptors();
        const std::vector<std::string> words(argv + 1, argv + argc);
        needs_phone = runs_something(words);
        return do_command_line(words);
    } catch (const std::exception& error) {
        print_refusal(error.what());
        return needs_phone ? STATUS_NO_PHONE : STATUS_FAILED;
    }
}
