// The phone command.
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "emulator/command_line.h"
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
constexpr int STATUS_FAILED = 1;

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

// A word as a shell takes it.
std::string shell_word(const std::string& word) {
    const char* const plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+-";
    if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) {
        return word;
    }
    std::string quoted = "'";
    for (const char character : word) {
        quoted += character == '\'' ? "'\\''" : std::string(1, character);
    }
    return quoted + "'";
}

// What one can do next, as it is typed where this phone was booted.
std::string banner(const Choices& choices) {
    const std::string name = choices.name.empty() ? "" : " --name " + shell_word(choices.name);
    const auto phone = [&](const std::string& command, const std::string& operands = "") {
        return shell_word(choices.program) + " " + command + name + operands;
    };
    const size_t folder = choices.program.rfind('/');
    const std::string reader =
        (folder == std::string::npos ? "" : choices.program.substr(0, folder + 1)) + "dmd-report";
    std::vector<std::pair<std::string, const char*>> lines = {
        {phone("report", " dsm_tp 20002 'some text'"), "a driver reports an error"},
        {phone("command", " dsm_tp on 20002"), "an application asks for a dump"},
        {phone("key", " up down up"), "somebody presses the phone's keys"},
        {phone("log-dir"), "where the reports are"},
        {shell_word(reader) + " \"$(" + phone("log-dir") + ")\"", "what is in them"},
        {phone("shell"), "a shell in the phone"},
    };
    if (choices.commercial) {
        lines.erase(lines.begin() + 2);  // nobody watches the keys of a commercial build
    }
    size_t width = 0;
    for (const auto& line : lines) {
        width = std::max(width, line.first.size());
    }
    std::string text = choices.commercial ? "A commercial" : "A debug";
    text += " build boots; Ctrl-C ends it. From another terminal:\n";
    for (const auto& [command, effect] : lines) {
        text += "  " + command + std::string(width - command.size(), ' ') + "   " + effect + "\n";
    }
    return text;
}

int boot(const Choices& choices) {
    PhoneOptions options = phone_options(choices);
    options.socket_name = socket_of_phone(choices.name.empty() ? DEFAULT_NAME : choices.name);
    options.command = {std::string(BUILD_DIR) + "/dmd"};
    options.command.insert(options.command.end(), choices.words.begin(), choices.words.end());
    options.banner = banner(choices);
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
int shell(const Choices& choices) {
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
int ask_and_print(const Choices& choices) {
    std::vector<std::string> words = {choices.command};
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

// What the commands do; one that has no row here is a request to a running phone as it stands.
constexpr struct {
    const char* command;
    int (*run)(const Choices& choices);
} ACTIONS[] = {
    {"boot", boot}, {"run", run}, {"shell", shell}, {"log-dir", log_dir}, {"key", press_keys},
};

int do_command(const Choices& choices) {
    for (const auto& action : ACTIONS) {
        if (choices.command == action.command) {
            return action.run(choices);
        }
    }
    return ask_and_print(choices);
}

}  // namespace

int main(int argc, char** argv) {
    bool needs_phone = false;
    try {
        fill_standard_descriptors();
        const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
        needs_phone = runs_something(words);
        Choices choices;
        return read_command_line(argc > 0 ? argv[0] : "phone", words, &choices) ? do_command(choices) : 0;
    } catch (const std::exception& error) {
        print_refusal(error.what());
        return needs_phone ? STATUS_NO_PHONE : STATUS_FAILED;
    }
}
