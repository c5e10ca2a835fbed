// The phone command.
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "emulator/command_line.h"
#include "emulator/control_client.h"
#include "emulator/files.h"
#include "emulator/log_keeper.h"
#include "emulator/phone.h"
#include "emulator/phone_view.h"
#include "emulator/refusal.h"
#include "emulator/requests.h"

namespace {

using namespace phone;

// Bytes of a configuration file: far more than the daemon reads of it.
constexpr size_t CONFIG_MAX = 16 * 1024 * 1024;
// What is beside the program.
constexpr char CONFIG_SAMPLE[] = "/device_state_monitor.conf";
constexpr char CONFIG_CHECKER[] = "/dmd-config-check";
constexpr int STATUS_FAILED = 1;
// Microseconds between two looks at a log that is followed.
constexpr useconds_t FOLLOW_US = 100000;

void finish_output() {
    if (fflush(stdout) != 0) {
        throw refusal_errno("cannot write to standard output");
    }
}

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

PhoneOptions phone_options(const Choices& choices) {
    PhoneOptions options;
    options.commercial = choices.commercial;
    const std::string folder = program_folder();
    options.config = read_file(choices.config.empty() ? folder + CONFIG_SAMPLE : choices.config, CONFIG_MAX);
    if (!choices.data.empty()) {
        if (mkdir(choices.data.c_str(), 0755) != 0 && errno != EEXIST) {
            throw refusal_errno("cannot make " + choices.data);
        }
        options.data_dir = absolute(choices.data);
    }
    options.data_size = choices.data_size;
    options.build_dir = folder;
    for (const std::string& shown : choices.binds) {
        options.binds.push_back(absolute(shown));
        if (access((shown + "/.").c_str(), F_OK) != 0) {
            throw refusal_errno("cannot show " + shown);
        }
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

// A client that the daemon listens to, and one of its errors, as operands.
std::string known_error(const std::string& config) {
    std::istringstream words(config);
    std::string word;
    std::string client;
    bool is_listened_to = false;
    while (words >> word) {
        if (word == "algo_type") {
            is_listened_to = words >> word && word == "listen";
        } else if (word == "client_name") {
            words >> client;
        } else if (word == "error_no" && is_listened_to && words >> word) {
            return " " + shell_word(client) + " " + shell_word(word);
        }
    }
    return " dsm_tp 20002";
}

// What one can do next, as it is typed where this phone was booted.
std::string banner(const Choices& choices, const std::string& config) {
    const std::string name = choices.name.empty() ? "" : " --name " + shell_word(choices.name);
    const auto phone = [&](const std::string& command, const std::string& operands = "") {
        return shell_word(choices.program) + " " + command + name + operands;
    };
    const size_t folder = choices.program.rfind('/');
    const std::string reader =
        (folder == std::string::npos ? "" : choices.program.substr(0, folder + 1)) + "dmd-report";
    std::vector<std::pair<std::string, const char*>> lines = {
        {phone("report", known_error(config) + " 'some text'"), "a driver reports an error"},
        {phone("command", " dsm_tp on 20002"), "an application asks for a dump"},
        {phone("key", " up down up"), "somebody presses the phone's keys"},
        {phone("log", " -f"), "the log, as here"},
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
    text += " build is up; Ctrl-C ends it. From another terminal:\n";
    for (const auto& [command, effect] : lines) {
        text += "  " + command + std::string(width - command.size(), ' ') + "   " + effect + "\n";
    }
    return text;
}

// What the checker says against the configuration goes before everything else. A build without it boots all
// the same.
void print_warnings(const std::string& config) {
    const std::string checker = program_folder() + CONFIG_CHECKER;
    struct stat status = {};
    // A pipe has been read already.
    if (stat(config.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
        access(checker.c_str(), X_OK) != 0) {
        return;
    }
    const pid_t child = fork();
    if (child == 0) {
        execl(checker.c_str(), checker.c_str(), "--warnings", "--", config.c_str(), nullptr);
        _exit(STATUS_FAILED);
    }
    waitpid(child, nullptr, 0);
}

int boot(const Choices& choices) {
    PhoneOptions options = phone_options(choices);
    print_warnings(choices.config);
    options.socket_name = socket_of_phone(choices.name.empty() ? DEFAULT_NAME : choices.name);
    options.command = {std::string(BUILD_DIR) + "/dmd"};
    options.command.insert(options.command.end(), choices.words.begin(), choices.words.end());
    options.is_boot = true;
    options.banner = banner(choices, options.config);
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

// Whether the line names the client, and not only one whose name begins with its own.
bool names_client(const std::string& line, const std::string& client) {
    const auto is_part = [](char byte) {
        return isalnum(static_cast<unsigned char>(byte)) != 0 || byte == '_';
    };
    for (size_t at = line.find(client); at != std::string::npos; at = line.find(client, at + 1)) {
        const size_t end = at + client.size();
        if ((at == 0 || !is_part(line[at - 1])) && (end == line.size() || !is_part(line[end]))) {
            return true;
        }
    }
    return false;
}

int show_log(const Choices& choices) {
    if (!choices.client.empty()) {
        ask(choices, {"pending", choices.client});  // refuses a client that there is not
    }
    const std::string root = root_of_phone(socket_name(choices));
    LogReader log(root);
    if (!log.is_kept()) {
        throw Refusal("the phone keeps no log: only one that was booted with 'phone boot' does");
    }
    std::string text;
    bool goes_on = true;
    while (goes_on) {
        goes_on = choices.follow && access(root.c_str(), F_OK) == 0;  // before the last lines are read
        text += log.read_more();
        size_t begin = 0;
        for (size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
            const std::string line = text.substr(begin, end - begin);
            if (choices.client.empty() || names_client(line, choices.client)) {
                printf("%s\n", line.c_str());
            }
        }
        text.erase(0, begin);
        finish_output();
        usleep(goes_on ? FOLLOW_US : 0);
    }
    return 0;
}

int log_dir(const Choices& choices) {
    std::string folder = ask(choices, {"log-dir"});
    if (getenv(CONTROL_VARIABLE) != nullptr) {
        folder = PHONE_LOG_DIR;  // in a phone, its own
    } else if (folder.empty()) {
        folder = root_of_phone(socket_name(choices)) + PHONE_LOG_DIR;
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
    {"boot", boot},     {"run", run},         {"shell", shell},     {"log", show_log},   {"log-dir", log_dir},
    {"report", report}, {"state", set_state}, {"command", command}, {"key", press_keys},
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
        const int status =
            read_command_line(argc > 0 ? argv[0] : "phone", words, &choices) ? do_command(choices) : 0;
        finish_output();
        return status;
    } catch (const std::exception& error) {
        print_refusal(error.what());
        return needs_phone ? STATUS_NO_PHONE : STATUS_FAILED;
    }
}
