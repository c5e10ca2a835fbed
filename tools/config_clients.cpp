// The client table, as people and programs read it.
#include "tools/config_clients.h"

#include <strings.h>

#include <nlohmann/json.hpp>

#include "clients/client_table.h"
#include "tools/config_print.h"

namespace tools {
namespace {

using nlohmann::json;

Table table_of_slots() {
    Table table = {{{"CLIENT"},
                    {"BYTES", Holds::NUMBER},
                    {"KIND"},
                    {"SLOT", Holds::NUMBER},
                    {"WHAT IT DOES"},
                    {"OPERATION", Holds::TEXT, Fit::DROPPED}},
                   {}};
    for (const dmd_client_info& row : default_clients) {
        const auto add_slots = [&](const char* kind, const client_dump_operation* operations) {
            for (int slot = 0; slot < SLOT_COUNT; ++slot) {
                if (operations[slot] != nullptr) {
                    const OperationFacts& facts = facts_of(operations[slot]);
                    table.rows.push_back({{row.name, std::to_string(row.buffer_size), kind,
                                           std::to_string(slot), facts.does, facts.name}});
                }
            }
        };
        add_slots("dump", row.dump);
        add_slots("force-dump", row.force_dump);
    }
    return table;
}

// What an operation does besides reading a text and reporting it.
std::vector<Step> further_steps(const OperationFacts& facts) {
    std::string packs = facts.packs;
    for (const int number : facts.packs_for) {
        packs += (number == facts.packs_for.front() ? ", only for " : " and ") + std::to_string(number);
    }
    std::vector<Step> steps;
    for (const Step& step : std::initializer_list<Step>{{"first", facts.first},
                                                        {"waits", facts.waits},
                                                        {"packs", packs},
                                                        {"debug build", facts.debug},
                                                        {"commercial build", facts.commercial},
                                                        {"last", facts.last}}) {
        if (!step.text.empty()) {
            steps.push_back(step);
        }
    }
    return steps;
}

}  // namespace

const dmd_client_info* find_client(const std::string& name) {
    for (const dmd_client_info& row : default_clients) {
        if (strncasecmp(row.name, name.c_str(), sizeof row.name) == 0) {
            return &row;
        }
    }
    return nullptr;
}

std::vector<std::string> client_names() {
    std::vector<std::string> names;
    for (const dmd_client_info& row : default_clients) {
        names.emplace_back(row.name);
    }
    return names;
}

std::string format_clients(const Terminal& terminal) {
    Terminal readable;  // aligned, and as wide, wherever it goes
    readable.is_terminal = true;
    readable.colours = terminal.colours;
    std::string text = format_table(readable, table_of_slots());
    text +=
        "\n" +
        wrap(
            "A listen section runs dump slots, a poll section force-dump slots. BYTES is the most that is "
            "read of a text. A report takes an error's text out of the driver and writes it to the record "
            "file. "
            "A debug build then uploads an archive of the record file and the system's logs; a commercial "
            "build uploads the report alone, each number once a day. A short report leaves out the list of "
            "processes, and a debug build uploads the record file instead of an archive. A report of a "
            "forced dump has the text that the driver writes when it is asked to dump. Some operations do "
            "more. A debug build packs with the report what there is of their files:",
            0) +
        "\n";
    for (const OperationFacts& facts : operation_facts) {
        const std::vector<Step> steps = further_steps(facts);
        if (!steps.empty()) {
            text += "\n" + paint(terminal, Colour::BOLD, facts.does) + " (" + facts.name + ")\n" +
                    format_steps(terminal, steps);
        }
    }
    return text;
}

std::string format_clients_tsv() {
    return format_table({}, table_of_slots());
}

std::string format_clients_json() {
    json clients = json::array();
    for (const dmd_client_info& row : default_clients) {
        const auto slots = [](const client_dump_operation* operations) {
            json shown = json::array();
            for (int slot = 0; slot < SLOT_COUNT; ++slot) {
                if (operations[slot] != nullptr) {
                    const OperationFacts& facts = facts_of(operations[slot]);
                    shown.push_back({{"slot", slot}, {"operation", facts.name}, {"does", facts.does}});
                }
            }
            return shown;
        };
        clients.push_back({{"name", row.name},
                           {"bytes", row.buffer_size},
                           {"dump", slots(row.dump)},
                           {"force_dump", slots(row.force_dump)}});
    }
    json operations = json::object();
    for (const OperationFacts& facts : operation_facts) {
        json steps = json::array();
        for (const Step& step : further_steps(facts)) {
            steps.push_back({{"when", step.label}, {"what", step.text}});
        }
        operations[facts.name] = {{"does", facts.does}, {"steps", steps}};
    }
    return json{{"clients", clients}, {"operations", operations}}.dump(2) + "\n";
}

}  // namespace tools
