// dmd-config-check: says what the daemon will make of a configuration file.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "desk/command_line.h"
#include "tools/config_check.h"
#include "tools/config_clients.h"
#include "tools/config_explain.h"
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

// What the command line asks for.
struct Request {
    std::string path;
    std::pair<std::string, std::string> explain;  // a client and a number
    bool clients = false;
    bool warnings = false;
    bool tsv = false;
    bool json = false;
};

std::string show_clients(const Request& request) {
    if (request.json) {
        return tools::format_clients_json();
    }
    return request.tsv ? tools::format_clients_tsv() : tools::format_clients(tools::describe_terminal());
}

std::string show_config(const Request& request, const tools::CheckedConfig& config) {
    if (request.json) {
        return tools::format_config_json(config);
    }
    if (request.tsv) {
        return tools::format_config_tsv(config);
    }
    const tools::Terminal terminal = tools::describe_terminal();
    return request.warnings ? tools::format_warnings(terminal, config)
                            : tools::format_config(terminal, config);
}

int refuse(const std::string& what) {
    fprintf(stderr, "dmd-config-check: %s\n", what.c_str());
    return STATUS_UNREADABLE;
}

int explain(const Request& request) {
    const auto& [name, number] = request.explain;
    const dmd_client_info* const client = tools::find_client(name);
    if (client == nullptr) {
        return refuse(desk::no_such("client", name, tools::client_names()));
    }
    int32_t value = 0;
    const char* const end = number.data() + number.size();
    const auto parsed = std::from_chars(number.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        return refuse(number + " is no error number");
    }
    const tools::CheckedConfig config = tools::check_config(request.path);
    const tools::Terminal terminal = tools::describe_terminal();
    return print(config.parsed ? tools::explain_number(terminal, config, *client, value)
                               : tools::format_config(terminal, config))
               ? status_of(config)
               : STATUS_UNREADABLE;
}

int run(int argc, char** argv) {
    Request request;
    CLI::App app("Shows what dmd will do with a configuration file, and warns of what it will not do.",
                 "dmd-config-check");
    app.add_option("FILE", request.path, "The configuration, device_state_monitor.conf on a phone");
    const auto explained =
        app.add_option("--explain", request.explain,
                       "What happens with that error (or polled state) of the client, step by step");
    explained->type_name("CLIENT NUMBER");
    const auto clients = app.add_flag("--clients", request.clients,
                                      "List all clients and their slots, and what each slot does");
    const auto warnings = app.add_flag("--warnings", request.warnings, "Print the warnings only");
    const auto tsv = app.add_flag("--tsv", request.tsv, "Print lines of columns, separated by tabs");
    const auto json = app.add_flag("--json", request.json, "Print one JSON document");
    explained->excludes(clients, warnings, tsv, json);
    warnings->excludes(clients, tsv, json);
    tsv->excludes(json);
    app.footer(
        "The file is read by the daemon's own parser and checked against the daemon's own clients.\n\n"
        "Exit status: 0 if the file is clean; 1 if there are warnings; 2 if the daemon cannot read the\n"
        "file and would watch nothing, if the command line is wrong, or if the output cannot be written.\n\n"
        "Examples:\n"
        "  dmd-config-check my.conf\n"
        "  dmd-config-check my.conf --explain dsm_tp 20002\n"
        "  dmd-config-check --clients | grep dsm_audio\n"
        "  dmd-config-check --json my.conf | jq '.sections[] | select(.in_force) | .client'\n");
    const std::optional<std::string> asked_for =
        desk::parse(&app, {argv + std::min(argc, 1), argv + argc}, {{"CLIENT", tools::client_names()}});
    if (asked_for) {
        return print(*asked_for) ? STATUS_CLEAN : STATUS_UNREADABLE;
    }
    if (request.clients == !request.path.empty()) {
        return refuse(request.clients ? "--clients takes no FILE"
                                      : "FILE is required (--help tells how to use it)");
    }
    if (request.clients) {
        return print(show_clients(request)) ? STATUS_CLEAN : STATUS_UNREADABLE;
    }
    if (!explained->empty()) {
        return explain(request);
    }
    const tools::CheckedConfig config = tools::check_config(request.path);
    return print(show_config(request, config)) ? status_of(config) : STATUS_UNREADABLE;
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
