// Following an error or a state through the configuration.
#include "tools/config_explain.h"

#include <algorithm>
#include <set>
#include <vector>

#include "tools/config_clients.h"
#include "tools/config_print.h"

namespace tools {
namespace {

// The steps of a trigger's actions, one action after the other.
class TriggerSteps {
  public:
    TriggerSteps(const Terminal& terminal, const CheckedSection& section, const CheckedTrigger& trigger)
        : terminal_(terminal),
          section_(section),
          actions_(trigger.actions),
          number_(std::to_string(trigger.number)),
          trigger_(trigger) {}

    std::string format() {
        std::string text;
        for (const CheckedAction& action : actions_) {
            ++place_;
            const OperationFacts* const facts = action.operation;
            text += "  " + std::to_string(place_) + ". " +
                    paint(terminal_, Colour::BOLD, one_line(action_word(action))) +
                    (facts != nullptr ? std::string(": ") + facts->does + " (" + facts->name + ")" : "") +
                    "\n";
            text += format_steps(terminal_, steps_of(action));
            if (facts != nullptr && facts->report != Report::NONE && reported_by_ == 0) {
                reported_by_ = place_;
            }
            if (facts != nullptr && facts->report == Report::FULL && packed_by_ == 0) {
                packed_by_ = place_;
            }
        }
        return text + "\n" + wrap(what_becomes_of_error(), 0) + "\n";
    }

  private:
    std::vector<Step> steps_of(const CheckedAction& action) {
        if (action.operation == nullptr) {
            return {{"nothing", action.why_nothing}};
        }
        const OperationFacts& facts = *action.operation;
        std::vector<Step> steps = {{"first", facts.first},
                                   {"reads", reads(facts, *find_client(action.client))},
                                   {"waits", facts.waits},
                                   {"writes", writes(facts, action.client)},
                                   {"debug build", on_debug_build(facts)},
                                   {"commercial build", on_commercial_build(facts)},
                                   {"last", facts.last}};
        steps.erase(
            std::remove_if(steps.begin(), steps.end(), [](const Step& step) { return step.text.empty(); }),
            steps.end());
        return steps;
    }

    std::string reads(const OperationFacts& facts, const dmd_client_info& client) {
        const std::string name = client.name;
        const std::string size = ", up to " + std::to_string(client.buffer_size) + " bytes";
        const std::string none = size + "; if there is none, nothing is reported";
        if (facts.reads == Reads::NOTHING) {
            return "";
        }
        if (facts.reads == Reads::FORCED) {
            return "what the driver of " + name + " says when it is asked to dump for " + number_ + none;
        }
        if (name != section_.client) {
            return "the text of an error that " + name + " happens to have" + none;
        }
        if (taken_by_ != 0) {
            return "the text of a further error of " + name + none + " (action " + std::to_string(taken_by_) +
                   " has the text of this one)";
        }
        taken_by_ = place_;
        return "the error's text out of " + name + size;
    }

    static std::string writes(const OperationFacts& facts, const std::string& client) {
        if (facts.report == Report::NONE) {
            return "";
        }
        return std::string(facts.report == Report::SHORT ? "a report without the list of processes"
                                                         : "a report") +
               " to the record file" +
               (facts.reads == Reads::FORCED ? ", whose device is always " + client : "");
    }

    std::string on_debug_build(const OperationFacts& facts) const {
        if (facts.report == Report::NONE) {
            return facts.debug;
        }
        if (facts.report == Report::SHORT) {
            return "hands the record file to the upload service";
        }
        const bool packs_more =
            !facts.packs.empty() &&
            (facts.packs_for.empty() ||
             std::count(facts.packs_for.begin(), facts.packs_for.end(), trigger_.number) > 0);
        return (packs_more ? "packs the record file, the system's logs, and what there is of " + facts.packs
                           : std::string("packs the record file and the system's logs")) +
               "; hands the archive to the upload service" +
               (packed_by_ != 0 ? "; begun in the same second as action " + std::to_string(packed_by_) +
                                      ", it has no archive of its own"
                                : "") +
               (facts.debug.empty() ? "" : "; " + facts.debug);
    }

    std::string on_commercial_build(const OperationFacts& facts) const {
        if (facts.report == Report::NONE) {
            return facts.commercial;
        }
        return "hands the report alone to the upload service" +
               (reported_by_ != 0 ? ", unless action " + std::to_string(reported_by_) + " did so: reports of "
                                  : ", but reports of ") +
               number_ + " once a day only";
    }

    std::string what_becomes_of_error() const {
        if (section_.server == "poll") {
            return "This repeats at every sample that finds the state.";
        }
        if (taken_by_ != 0) {
            return "Action " + std::to_string(taken_by_) + " takes the error out of the driver.";
        }
        return "No action takes the error out of the driver: the daemon looks at it again and again, after "
               "rests that grow to a minute. Later errors of " +
               section_.client + " wait behind it.";
    }

    const Terminal& terminal_;
    const CheckedSection& section_;
    const std::vector<CheckedAction>& actions_;
    const std::string number_;
    const CheckedTrigger& trigger_;
    size_t place_ = 0;  // of the action, from 1
    // The first action that does it, 0 while there is none.
    size_t taken_by_ = 0;  // reads the error's own text
    size_t reported_by_ = 0;
    size_t packed_by_ = 0;  // packs its report
};

const CheckedSection* section_of(const CheckedConfig& config, const std::string& client, const char* server) {
    for (const CheckedSection& section : config.sections) {
        if (section.in_force && section.client == client && section.server == server) {
            return &section;
        }
    }
    return nullptr;
}

const CheckedTrigger* trigger_of(const CheckedSection& section, int32_t number) {
    for (const CheckedTrigger& trigger : section.triggers) {
        if (trigger.fires && trigger.number == number) {
            return &trigger;
        }
    }
    return nullptr;
}

std::string place_of(const CheckedSection& section, const CheckedTrigger& trigger) {
    return "section [" + section.name + "], line " + std::to_string(trigger.line);
}

// Who else uses the number, which a commercial build counts across all sections.
std::string other_users(const CheckedConfig& config, const CheckedSection& section,
                        const CheckedTrigger& trigger) {
    std::string text;
    if (!reports(trigger)) {
        return text;
    }
    for (const CheckedSection& other : config.sections) {
        const CheckedTrigger* const same = other.in_force ? trigger_of(other, trigger.number) : nullptr;
        if (&other != &section && same != nullptr && reports(*same)) {
            text += wrap(one_line("A trigger of " + other.client + " has the number too (" +
                                  place_of(other, *same) +
                                  "): of their reports, a commercial build uploads one a day."),
                         0) +
                    "\n";
        }
    }
    return text;
}

// The names in the report of an action come from the sections of the action's own client.
std::string names_in_reports(const CheckedConfig& config, const CheckedTrigger& trigger) {
    std::set<std::string> clients;
    for (const CheckedAction& action : trigger.actions) {
        if (action.operation != nullptr && action.operation->report != Report::NONE) {
            clients.insert(find_client(action.client)->name);
        }
    }
    std::string text;
    for (const std::string& client : clients) {
        const CheckedSection* const listened = section_of(config, client, "listen");
        const CheckedSection* const section =
            listened != nullptr ? listened : section_of(config, client, "poll");
        text +=
            wrap("Names for " + client + ": " +
                     (section != nullptr ? format_names(*section) : "none, as no section watches it") + ".",
                 0) +
            "\n";
    }
    return text;
}

std::string explain_section(const Terminal& terminal, const CheckedConfig& config,
                            const CheckedSection& section, int32_t number) {
    const bool polled = section.server == "poll";
    const std::string name = std::to_string(number);
    const CheckedTrigger* const trigger = trigger_of(section, number);
    std::string text =
        paint(terminal, Colour::BOLD, (polled ? "State " : "Error ") + name + " of " + section.client) + ": ";
    if (trigger == nullptr) {
        text += "no trigger of section [" + one_line(section.name) + "], line " +
                std::to_string(section.line) + "\n\n";
        text += wrap(polled ? "At a sample that finds it, the daemon logs \"client " + section.client +
                                  "'s error (" + name + ") ignored\", and does nothing more."
                            : "The daemon logs \"" + section.client + " has error (" + name +
                                  ") ignored\", and clears it: it reads the text and throws it away.",
                     0);
        return text + "\n";
    }
    text += one_line(place_of(section, *trigger)) + "\n\n";
    const std::string when = polled ? "Every " + std::to_string(section.period_seconds) +
                                          " seconds the daemon asks the driver for its state. If that is " +
                                          name + ", it logs \"client " + section.client + "'s error (" +
                                          name + ") occured\""
                                    : "When the driver reports the error, the daemon logs \"" +
                                          section.client + " has error (" + name + ") reported\"";
    text += wrap(when + ", and runs these actions in order:", 0) + "\n\n";
    text += TriggerSteps(terminal, section, *trigger).format();
    if (number == 0) {
        text += "A number that the driver refuses to tell counts as 0, too.\n";
    }
    text +=
        "Running test switch: " + (trigger->test_switch.empty() ? "none" : one_line(trigger->test_switch)) +
        ".\n";
    return text + names_in_reports(config, *trigger) + other_users(config, section, *trigger);
}

}  // namespace

std::string explain_number(const Terminal& terminal, const CheckedConfig& config,
                           const dmd_client_info& client, int32_t number) {
    const CheckedSection* const listened = section_of(config, client.name, "listen");
    const CheckedSection* const polled = section_of(config, client.name, "poll");
    std::string text;
    if (listened != nullptr) {
        text = explain_section(terminal, config, *listened, number);
    } else {
        text = paint(terminal, Colour::BOLD, "Error " + std::to_string(number) + " of " + client.name) +
               ": no listen section\n\nNobody watches the errors of " + client.name + ".\n";
    }
    if (polled != nullptr) {
        text += "\n" + explain_section(terminal, config, *polled, number);
    }
    const auto warnings = std::count_if(config.findings.begin(), config.findings.end(),
                                        [](const Finding& finding) { return finding.is_warning; });
    if (warnings > 0) {
        text += "\n" + paint(terminal, Colour::YELLOW, counted(static_cast<size_t>(warnings), "warning")) +
                " about the file; --warnings shows them.\n";
    }
    return text;
}

}  // namespace tools
