// Texts for people, for line-oriented programs, and as JSON.
#include "tools/config_print.h"

#include <algorithm>
#include <sstream>

#include <nlohmann/json.hpp>

namespace tools {
namespace {

using nlohmann::json;

constexpr size_t TEXT_WIDTH = 72;

std::string format_period(uint64_t seconds) {
    return "every " + std::to_string(seconds) + " s";
}

std::string format_action(const Terminal& terminal, const CheckedAction& action) {
    std::string word = one_line(action_word(action));
    word.resize(std::max(word.size(), size_t{20}), ' ');
    if (action.operation == nullptr) {
        return word + " " + paint(terminal, Colour::YELLOW, "nothing");
    }
    return word + " " + action.operation->name +
           paint(terminal, Colour::DIM, std::string(": ") + action.operation->does);
}

std::string format_block(const Terminal& terminal, const CheckedSection& section) {
    std::string text = paint(terminal, Colour::BOLD, "[" + one_line(section.name) + "]") +
                       paint(terminal, Colour::DIM, "  line " + std::to_string(section.line)) + "\n";
    if (section.server.empty()) {
        return text + "  " + paint(terminal, Colour::YELLOW, "skipped") + "\n";
    }
    text += "  client   " + (section.client.empty() ? "none" : one_line(section.client)) + ", " +
            (section.server == "listen" ? "listened to" : "polled " + format_period(section.period_seconds)) +
            (section.in_force ? "" : paint(terminal, Colour::YELLOW, "  has no effect")) + "\n";
    text += "  names    " + format_names(section) + "\n";
    for (const CheckedTrigger& trigger : section.triggers) {
        text += (section.server == "listen" ? "  error    " : "  state    ") + std::to_string(trigger.number);
        if (!trigger.test_switch.empty()) {
            text += ", test switch " + one_line(trigger.test_switch);
        }
        text += (trigger.fires ? "" : paint(terminal, Colour::YELLOW, "  never fires")) + "\n";
        for (const CheckedAction& action : trigger.actions) {
            text += "             " + format_action(terminal, action) + "\n";
        }
    }
    return text;
}

std::string format_finding(const Terminal& terminal, const CheckedConfig& config, const Finding& finding) {
    const std::string line = finding.line != 0 ? std::to_string(finding.line) + ":" : "";
    const std::string kind = finding.is_warning ? paint(terminal, Colour::YELLOW, "warning: ")
                                                : paint(terminal, Colour::DIM, "note: ");
    return one_line(config.path) + ":" + line + " " + kind + one_line(finding.text) + "\n";
}

}  // namespace

std::string action_word(const CheckedAction& action) {
    return action.client + "+" + std::to_string(action.slot);
}

std::string format_names(const CheckedSection& section) {
    std::string text;
    const std::pair<const char*, const std::string&> names[] = {
        {"device ", section.device}, {"IC ", section.ic}, {"module ", section.module}};
    for (const auto& [what, name] : names) {
        if (!name.empty()) {
            text += (text.empty() ? "" : ", ") + (what + one_line(name));
        }
    }
    return text.empty() ? "none, should the driver give none" : text + ", where the driver gives none";
}

std::string wrap(const std::string& text, size_t indent) {
    std::istringstream words(text);
    std::string wrapped;
    std::string word;
    size_t column = indent;
    while (words >> word) {
        if (column > indent && column + 1 + word.size() > TEXT_WIDTH) {
            wrapped += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (column > indent) {
            wrapped += ' ';
            ++column;
        }
        wrapped += word;
        column += word.size();
    }
    return wrapped;
}

std::string format_steps(const Terminal& terminal, const std::vector<Step>& steps) {
    constexpr size_t INDENT = 5;
    constexpr size_t LABEL_WIDTH = 18;
    std::string text;
    for (const Step& step : steps) {
        std::string label = step.label;
        label.resize(LABEL_WIDTH, ' ');
        text += std::string(INDENT, ' ') + paint(terminal, Colour::DIM, label) +
                wrap(one_line(step.text), INDENT + LABEL_WIDTH) + "\n";
    }
    return text;
}

std::string format_warnings(const Terminal& terminal, const CheckedConfig& config) {
    std::string text;
    for (const Finding& finding : config.findings) {
        text += finding.is_warning ? format_finding(terminal, config, finding) : "";
    }
    return text;
}

std::string format_config(const Terminal& terminal, const CheckedConfig& config) {
    std::string text;
    for (const CheckedSection& section : config.sections) {
        text += format_block(terminal, section) + "\n";
    }
    size_t warnings = 0;
    for (const Finding& finding : config.findings) {
        warnings += finding.is_warning ? 1 : 0;
        text += format_finding(terminal, config, finding);
    }
    const auto watched = std::count_if(config.sections.begin(), config.sections.end(),
                                       [](const CheckedSection& section) { return section.in_force; });
    const std::string sum = counted(config.sections.size(), "section") + ", " + std::to_string(watched) +
                            " in force, " + counted(warnings, "warning");
    if (!config.parsed) {
        return text +
               paint(terminal, Colour::RED, "The daemon cannot read this file and would watch nothing.") +
               "\n";
    }
    return text + paint(terminal, warnings == 0 ? Colour::GREEN : Colour::YELLOW, sum) + "\n";
}

std::string format_config_tsv(const CheckedConfig& config) {
    std::string text;
    const auto add = [&](const std::vector<std::string>& parts) {
        for (const std::string& part : parts) {
            text += (&part == &parts.front() ? "" : "\t") + one_line(part);
        }
        text += '\n';
    };
    for (const CheckedSection& section : config.sections) {
        add({"section", std::to_string(section.line), section.name, section.server, section.client,
             section.in_force ? "in-force" : "no-effect", std::to_string(section.period_seconds),
             section.device, section.ic, section.module});
        for (const CheckedTrigger& trigger : section.triggers) {
            add({"trigger", std::to_string(trigger.line), std::to_string(trigger.number), trigger.test_switch,
                 trigger.fires ? "fires" : "never-fires"});
            for (const CheckedAction& action : trigger.actions) {
                add({"action", std::to_string(trigger.line), action_word(action),
                     action.operation != nullptr ? action.operation->name : "",
                     action.operation != nullptr ? action.operation->does : action.why_nothing});
            }
        }
    }
    for (const Finding& finding : config.findings) {
        add({finding.is_warning ? "warning" : "note", std::to_string(finding.line), finding.text,
             finding.log});
    }
    return text;
}

std::string format_config_json(const CheckedConfig& config) {
    json document = {{"file", config.path},
                     {"parsed", config.parsed},
                     {"sections", json::array()},
                     {"warnings", json::array()},
                     {"notes", json::array()}};
    for (const CheckedSection& section : config.sections) {
        json shown = {{"name", section.name},
                      {"line", section.line},
                      {"server", section.server.empty() ? json(nullptr) : json(section.server)},
                      {"in_force", section.in_force},
                      {"client", section.client},
                      {"device_name", section.device},
                      {"ic_name", section.ic},
                      {"module_name", section.module},
                      {"period_s", section.server == "poll" ? json(section.period_seconds) : json(nullptr)},
                      {"triggers", json::array()}};
        for (const CheckedTrigger& trigger : section.triggers) {
            json actions = json::array();
            for (const CheckedAction& action : trigger.actions) {
                json done = {{"client", action.client},
                             {"slot", action.slot},
                             {"operation", nullptr},
                             {"does", nullptr},
                             {"why_nothing", nullptr}};
                if (action.operation != nullptr) {
                    done["operation"] = action.operation->name;
                    done["does"] = action.operation->does;
                } else {
                    done["why_nothing"] = action.why_nothing;
                }
                actions.push_back(done);
            }
            shown["triggers"].push_back({{"line", trigger.line},
                                         {"number", trigger.number},
                                         {"running_test_switch", trigger.test_switch},
                                         {"fires", trigger.fires},
                                         {"actions", actions}});
        }
        document["sections"].push_back(shown);
    }
    for (const Finding& finding : config.findings) {
        document[finding.is_warning ? "warnings" : "notes"].push_back(
            {{"line", finding.line != 0 ? json(finding.line) : json(nullptr)},
             {"text", finding.text},
             {"log", finding.log.empty() ? json(nullptr) : json(finding.log)}});
    }
    constexpr bool is_ascii = true;  // a terminal obeys other characters
    return document.dump(2, ' ', is_ascii, json::error_handler_t::replace) + "\n";
}

}  // namespace tools
