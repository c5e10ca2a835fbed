// dmd-config-check: says what the daemon will make of a configuration file.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/config_check.h"
#include "tools/config_print.h"
#include "tools/terminal.h"

namespace {

constexpr int STATUS_CLEAN = 0;
constexpr int STATUS_WARNINGS = 1;
constexpr int STATUS_UNREADABLE = 2;

int status_of(const tools::CheckedConfig& config) {
    if (!config.parsed) {
        return STATUS_UNREADABLE;
    }
    const bool has_warnings = std::any_of(config.findings.begin(), config.findings.end(),
                                          [](const tools::Finding& finding) { return finding.is_warning; });
    return has_warnings ? STATUS_WARNINGS : STATUS_CLEAN;
}

bool print(const std::string& text) {
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0) {
        perror("dmd-config-check: cannot write");
        return false;
    }
    return true;
}

int run(int argc, char** argv) {
    std::string path;
    bool as_json = false;
    CLI::App app("Shows what dmd will do with a configuration file, and warns of what it will not do.",
                 "dmd-config-check");
    app.add_option("FILE", path, "The configuration, device_state_monitor.conf on a phone")->required();
    app.add_flag("--json", as_json, "Print one JSON document");
    app.footer(
        "The file is read by the daemon's own parser and checked against the daemon's own clients.\n"
        "If the output is not a terminal, each section, trigger, action, warning and note is a line:\n"
        "that word, the line of the file, and the rest, separated by tabs.\n\n"
        "Exit status: 0 if the file is clean; 1 if there are warnings; 2 if the daemon cannot read the\n"
        "file and would watch nothing, or if the command line is wrong.\n\n"
        "Examples:\n"
        "  dmd-config-check config/device_state_monitor.conf\n"
        "  dmd-config-check my.conf | grep ^warning\n"
        "  dmd-config-check --json my.conf | jq '.sections[] | select(.in_force) | .client'\n");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return print(app.help()) ? STATUS_CLEAN : STATUS_UNREADABLE;
        }
        fprintf(stderr, "dmd-config-check: %s (--help tells how to use it)\n", error.what());
        return STATUS_UNREADABLE;
    }
    const tools::CheckedConfig config = tools::check_config(path);
    const std::string shown = as_json ? tools::format_config_json(config)
                                      : tools::format_config(tools::describe_terminal(), config);
    return print(shown) ? status_of(config) : STATUS_UNREADABLE;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "dmd-config-check: %s\n", error.what());
        return STATUS_UNREADABLE;
    }
}
