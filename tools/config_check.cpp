// The sections as the daemon acts on them, and what is odd about the file as a whole.
#include "tools/config_check.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <utility>

#include "config/config_parser.h"
#include "desk/near_word.h"
#include "tools/config_clients.h"
#include "tools/config_findings.h"
#include "tools/config_trace.h"
#include "tools/config_words.h"
#include "tools/operation_names.h"

namespace tools {
namespace {

// A state that stays is reported at every sample. With less than this between two, reports of it soon fill
// all record files.
constexpr uint64_t SHORT_PERIOD_SECONDS = 60;

// Retention does not know archives of longer numbers.
constexpr size_t ARCHIVED_NUMBER_LENGTH = 5;

// The operation that an action of a server's section runs, or null.
client_dump_operation operation_of(const dmd_client_info& row, int32_t algo_type, int32_t slot) {
    if (slot < 0 || static_cast<uint32_t>(slot) >= row.op_count) {
        return nullptr;
    }
    return algo_type == ALGO_POLL ? row.force_dump[slot] : row.dump[slot];
}

// Whether an action makes a file on a debug build that has the trigger's number in its name.
bool archives(const CheckedTrigger& trigger) {
    return std::any_of(trigger.actions.begin(), trigger.actions.end(), [](const CheckedAction& action) {
        return action.operation != nullptr &&
               (action.operation->report == Report::FULL || action.operation->saves_dump);
    });
}

// One section on its way from the parser's record to what a person reads.
class SectionCheck {
  public:
    SectionCheck(const SectionLines& lines, bool parsed, StepFindings* found)
        : setting_(*lines.setting),
          title_(title_of(setting_)),
          lines_(lines),
          parsed_(parsed),
          row_(find_client(setting_.client_name)),
          found_(found) {}

    CheckedSection run() {
        const bool poll = setting_.algo_type == ALGO_POLL;
        section_.name = setting_.section_name;
        section_.line = lines_.header;
        section_.server = poll ? "poll" : setting_.algo_type == ALGO_LISTEN ? "listen" : "";
        section_.client = row_ != nullptr ? row_->name : setting_.client_name;
        section_.device = setting_.device_name;
        section_.ic = setting_.ic_name;
        section_.module = setting_.module_name;
        for (const int line : lines_.repetitions) {
            warn(line,
                 title_ + " begins at line " + std::to_string(lines_.header) +
                     ": this adds to it, and overwrites what it names; another algo_type or a num_triggers "
                     "in it drops the triggers so far");
        }
        if (section_.server.empty()) {
            return section_;
        }
        section_.in_force = check_client() && parsed_;
        if (section_.in_force) {
            check_names(poll ? ALGO_LISTEN : ALGO_POLL);
        }
        const int32_t count = poll ? setting_.poll.num_triggers : setting_.listen.num_triggers;
        const trigger_info* const triggers = poll ? setting_.poll.triggers : setting_.listen.triggers;
        for (const auto& [index, lines] : lines_.triggers) {
            if (index < count) {
                check_trigger(triggers[index], lines);
            }
        }
        check_count(count);
        if (poll) {
            check_period();
        }
        return section_;
    }

  private:
    static std::string title_of(const setting_info& setting) {
        return std::string("section [") + setting.section_name + "]";
    }

    void warn(int line, const std::string& text) { found_->findings.push_back({line, text}); }

    int header_of(const setting_info* setting) const {
        return std::find_if(found_->sections.begin(), found_->sections.end(),
                            [setting](const SectionLines& lines) { return lines.setting == setting; })
            ->header;
    }

    std::string title_and_line(const setting_info& setting) const {
        return title_of(setting) + " at line " + std::to_string(header_of(&setting));
    }

    // Whether the server takes this section for its client.
    bool check_client() {
        if (setting_.client_name[0] == '\0') {
            warn(lines_.header, title_ + " has no client_name: it watches nothing");
            return false;
        }
        if (row_ == nullptr) {
            warn(lines_.client, "there is no client " + quoted(section_.client) + ": " + title_ +
                                    " watches nothing" + desk::did_you_mean(section_.client, client_names()));
            return false;
        }
        const setting_info* const taken = find_setting(row_->name, setting_.algo_type);
        if (taken != &setting_) {
            warn(lines_.header,
                 title_ + " has no effect: " + title_and_line(*taken) + " is for the same client and server");
            return false;
        }
        return true;
    }

    // A client has one set of names, which either server fills from its own section when it starts.
    void check_names(int32_t other_algo) {
        const setting_info* const other = find_setting(row_->name, other_algo);
        if (other == nullptr || header_of(other) > lines_.header ||
            (section_.device == other->device_name && section_.ic == other->ic_name &&
             section_.module == other->module_name)) {
            return;
        }
        warn(lines_.header,
             title_ + " and " + title_and_line(*other) + " name the device of " + section_.client +
                 " differently: either may hold where the driver gives none, also an empty one");
    }

    void check_period() {
        const int32_t period = setting_.poll.sampling_period;
        const uint32_t ticks = period != 0 ? static_cast<uint32_t>(period) : DEFAULT_SAMPLE_PERIOD;
        section_.period_seconds = uint64_t{ticks} * TICK_SECONDS;
        if (period < 0) {
            warn(lines_.header,
                 title_ + ": a sampling_period below 0 is a very long one, the client is never sampled");
        } else if (section_.in_force && section_.period_seconds < SHORT_PERIOD_SECONDS &&
                   std::any_of(section_.triggers.begin(), section_.triggers.end(), reports)) {
            warn(lines_.header, title_ + " samples every " + std::to_string(section_.period_seconds) +
                                    " s: a state that stays is reported each time, until the record files "
                                    "hold nothing else");
        }
    }

    void check_trigger(const trigger_info& trigger, const TriggerLines& lines) {
        const int line = lines.number != 0 ? lines.number : lines.action;
        const std::string number = std::to_string(trigger.error_no);
        if (trigger.action_num == 0) {
            warn(line, "the trigger of " + number + " has no action that completes it: it never fires");
            return;
        }
        if (lines.number == 0) {
            warn(line, "the trigger completed here has no error_no: it fires for " + number);
        }
        const bool fires =
            std::none_of(section_.triggers.begin(), section_.triggers.end(),
                         [&](const CheckedTrigger& earlier) { return earlier.number == trigger.error_no; });
        if (!fires) {
            warn(line, "a trigger of " + number + " stands earlier in the section: this one never fires");
        }
        CheckedTrigger checked = {line, trigger.error_no, trigger.running_test_switch, fires, {}};
        bool takes_error = false;
        for (int32_t i = 0; i < trigger.action_num; ++i) {
            const action_config& action = trigger.actions[i];
            checked.actions.push_back(check_action(action, lines.action));
            const OperationFacts* const operation = checked.actions.back().operation;
            takes_error = takes_error || (operation != nullptr && operation->reads == Reads::ERROR &&
                                          strcasecmp(action.client_name, setting_.client_name) == 0);
        }
        if (fires && section_.in_force && archives(checked) && number.size() > ARCHIVED_NUMBER_LENGTH) {
            warn(line, "archives of the number " + number +
                           " are neither counted nor deleted: that takes a number of up to " +
                           std::to_string(ARCHIVED_NUMBER_LENGTH) + " characters");
        }
        if (setting_.algo_type == ALGO_LISTEN && row_ != nullptr && !takes_error) {
            warn(lines.action,
                 "no action here takes the error out of " + section_.client +
                     ": it stays there, and the daemon looks at it again and again, after ever longer rests");
        }
        section_.triggers.push_back(checked);
    }

    CheckedAction check_action(const action_config& action, int line) {
        const std::string slot = std::to_string(action.action_info);
        CheckedAction checked = {action.client_name, action.action_info, nullptr, ""};
        const dmd_client_info* const row = find_client(action.client_name);
        if (row == nullptr) {
            checked.why_nothing = "there is no client " + quoted(checked.client) +
                                  desk::did_you_mean(checked.client, client_names());
        } else if (action.action_info < 0 || action.action_info >= SLOT_COUNT) {
            checked.why_nothing = "slots are 0 to " + std::to_string(SLOT_COUNT - 1);
        } else if (const auto operation = operation_of(*row, setting_.algo_type, action.action_info)) {
            checked.operation = &facts_of(operation);
        } else {
            checked.why_nothing = std::string(row->name) + " has no " +
                                  (setting_.algo_type == ALGO_POLL ? "force-dump" : "dump") + " slot " + slot;
        }
        if (checked.operation == nullptr) {
            warn(line, "the action " + checked.client + "+" + slot + " does nothing: " + checked.why_nothing);
        }
        return checked;
    }

    // Whether the triggers are as many as announced.
    void check_count(int32_t count) {
        const auto complete = static_cast<int32_t>(section_.triggers.size());
        if (complete == 0) {
            warn(lines_.num_triggers != 0 ? lines_.num_triggers : lines_.header,
                 title_ + " has no complete trigger: whatever its client reports, nothing is done");
        } else if (complete < count) {
            warn(lines_.num_triggers, "num_triggers announces " + std::to_string(count) + " triggers, but " +
                                          std::to_string(complete) + (complete == 1 ? " is" : " are") +
                                          " complete");
        }
    }

    const setting_info& setting_;
    const std::string title_;
    const SectionLines& lines_;
    const bool parsed_;                 // the daemon watches nothing of a file that it takes for broken
    const dmd_client_info* const row_;  // of its client, null when there is none
    StepFindings* const found_;
    CheckedSection section_;
};

// A commercial build's history of a day knows numbers, neither clients nor sections.
void check_shared_numbers(const std::vector<CheckedSection>& sections, std::vector<Finding>* findings) {
    struct User {
        const CheckedSection* section;
        int line;
    };
    std::map<int32_t, User> users;
    for (const CheckedSection& section : sections) {
        for (const CheckedTrigger& trigger : section.triggers) {
            if (!section.in_force || !trigger.fires || !reports(trigger)) {
                continue;
            }
            const User& first = users.try_emplace(trigger.number, User{&section, trigger.line}).first->second;
            if (first.section != &section) {
                findings->push_back(
                    {trigger.line,
                     "the trigger at line " + std::to_string(first.line) + ", of " + first.section->client +
                         ", has the number " + std::to_string(trigger.number) +
                         " too: a commercial build uploads only the first of their reports in a day"});
            }
        }
    }
}

// The line that an offset of the text is on, from 1.
int line_of(const std::string& text, size_t offset) {
    return 1 + static_cast<int>(std::count(text.data(), text.data() + offset, '\n'));
}

// What the whole file shows.
void check_file(const CheckedConfig& config, const std::string& text, std::vector<Finding>* findings) {
    struct stat status = {};
    const bool exists = stat(config.path.c_str(), &status) == 0;
    if (exists && S_ISFIFO(status.st_mode)) {
        findings->push_back({0, "it is a pipe, which the daemon does not read"});
    }
    if (exists && status.st_size > static_cast<off_t>(MAX_CONFIG_BYTES)) {
        // The first line that is not seen whole.
        const int line = line_of(text, text.size()) + (text.empty() || text.back() == '\n' ? 0 : 1);
        findings->push_back({line, "the file has " + std::to_string(status.st_size) +
                                       " bytes, of which the daemon reads " +
                                       std::to_string(MAX_CONFIG_BYTES) + ": nothing is seen from here on"});
    }
    const size_t nul = text.find('\0');
    if (config.parsed && nul != std::string::npos) {
        findings->push_back(
            {line_of(text, nul), "a NUL byte: the daemon reads the section that holds it only up to there"});
    }
}

}  // namespace

bool reports(const CheckedTrigger& trigger) {
    return std::any_of(trigger.actions.begin(), trigger.actions.end(), [](const CheckedAction& action) {
        return action.operation != nullptr && action.operation->report != Report::NONE;
    });
}

CheckedConfig check_config(const std::string& path) {
    CheckedConfig config;
    config.path = path;
    const ConfigTrace trace = trace_config(path);
    config.parsed = trace.parsed;
    StepFindings found = find_in_steps(trace);
    check_file(config, trace.text, &found.findings);
    for (const SectionLines& lines : found.sections) {
        config.sections.push_back(SectionCheck(lines, trace.parsed, &found).run());
    }
    check_shared_numbers(config.sections, &found.findings);
    if (config.parsed && config.sections.empty()) {
        found.findings.push_back({0, "the file has no section: the daemon watches nothing"});
    }
    std::vector<Finding>& findings = found.findings;
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& a, const Finding& b) { return a.line < b.line; });
    findings.erase(
        std::unique(findings.begin(), findings.end(),
                    [](const Finding& a, const Finding& b) { return a.line == b.line && a.text == b.text; }),
        findings.end());
    config.findings = std::move(findings);
    return config;
}

}  // namespace tools
