// Turning the parser's steps and messages into what a person can act on.
#include "tools/config_findings.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>

#include "config/section_fields.h"
#include "config/value_readers.h"
#include "desk/near_word.h"
#include "platform/text.h"
#include "tools/config_words.h"

namespace tools {
namespace {

#define REST_UNREAD "; the rest of the section is not read"

// The message about a value that the parser then takes for the name of a field.
constexpr char NOT_READ[] = "Unkown record!";

constexpr char NOT_FIRST[] = "algo_type field not first field";
constexpr char OUTSIDE[] = "Found filed ";
constexpr char NO_SERVER[] = "Unknown algo";

// The parser's messages by a part of their text, the first that fits. An empty explanation: the message adds
// nothing to another one, or to what the value itself shows.
const struct {
    const char* part;
    const char* explanation;
} complaints[] = {
    {"] Loading ", ""},
    {"Config file read (", ""},
    {"] line:", ""},
    {"Failed to parse config file", ""},
    {"parse_listen_section failed!", ""},
    {"parse_poll_section failed!", ""},
    {"undefined client name!", ""},
    {"Ignoring unknown field", ""},
    {"/parse_config] Error in file",
     "the word does not end: the daemon takes the file for broken, and watches nothing"},
    {"Unable to open config file", "the file cannot be opened"},
    {"Failed to read config file", "the file cannot be read"},
    {"Error in section", "the section is empty, and does nothing"},
    {"Error in file", "a word without an end" REST_UNREAD},
    {NOT_READ, "sampling_period has no effect in a listen section"},
    {"has invalid action info config", "an action without '+slot' is left out"},
    {"Invalid action config", "a '+' alone: the actions behind it are not read"},
    {"Ivalid error action filed", "not one valid action" REST_UNREAD},
    {"Invalid trigger buf malloc failed", "num_triggers is below 0 or far too large" REST_UNREAD},
    {"wrong trigger number",
     "num_triggers must come first and count all triggers: none is open here" REST_UNREAD},
    {"Invalid trigger buf",
     "num_triggers must come first and count all triggers: none is open here" REST_UNREAD},
    {"Invalid trigger numbers value", "num_triggers must be exactly one number" REST_UNREAD},
    {"Invalid sampling period value", "sampling_period must be exactly one number" REST_UNREAD},
    // What else is Invalid, or Ivalid.
    {"valid ", "no value that can be read" REST_UNREAD},
};

// What a message of the daemon means to the file's author; empty when it adds nothing.
std::string explain(const std::string& message) {
    for (const auto& complaint : complaints) {
        if (message.find(complaint.part) != std::string::npos) {
            return complaint.explanation;
        }
    }
    return message;
}

bool has_message(const TraceStep& step, const char* part) {
    return std::any_of(step.messages.begin(), step.messages.end(), [part](const std::string& message) {
        return message.find(part) != std::string::npos;
    });
}

std::vector<std::string> split(const std::string& line, const char* separators) {
    std::vector<std::string> words;
    size_t at = line.find_first_not_of(separators);
    while (at != std::string::npos) {
        const size_t end = std::min(line.find_first_of(separators, at), line.size());
        words.push_back(line.substr(at, end - at));
        at = line.find_first_not_of(separators, end);
    }
    return words;
}

bool is_keyword(const std::string& word) {
    return find_field(word.c_str()) != nullptr || strcasecmp(word.c_str(), "algo_type") == 0;
}

// The fields that are names, and how many bytes of them are kept.
const std::map<field_code, size_t> name_limits = {
    {FIELD_CLIENT_NAME, sizeof(setting_info::client_name) - 1},
    {FIELD_DEVICE_NAME, sizeof(setting_info::device_name) - 1},
    {FIELD_IC_NAME, sizeof(setting_info::ic_name) - 1},
    {FIELD_MODULE_NAME, sizeof(setting_info::module_name) - 1},
    {FIELD_RUNNING_TEST_SWITCH, sizeof(trigger_info::running_test_switch) - 1},
};

// Goes through the steps of a trace.
class StepWalk {
  public:
    explicit StepWalk(const ConfigTrace& trace) : text_(trace.text), steps_(trace.steps) {
        explain_all(0, trace.messages);
    }

    StepFindings run() {
        for (; at_ < steps_.size(); ++at_) {
            const TraceStep& step = steps_[at_];
            if (step.place == PLACE_HEADER) {
                take_header(step);
            } else if (step.place == PLACE_WORD) {
                take_word(step);
            } else if (field_ != nullptr) {
                take_value(step);
            } else {
                take_algo(step);
            }
        }
        return std::move(found_);
    }

  private:
    void warn(int line, const std::string& text, const std::string& log = "") {
        found_.findings.push_back({line, text, log});
    }

    void explain_all(int line, const std::vector<std::string>& messages) {
        for (const std::string& message : messages) {
            std::string text = explain(message);
            const size_t reason = message.find("err_info:");
            if (reason != std::string::npos) {
                text += ": " + message.substr(reason + strlen("err_info:"));
            }
            if (!text.empty()) {
                warn(line, text, message);
            }
        }
    }

    bool next_is(parse_place place) const {
        return at_ + 1 < steps_.size() && steps_[at_ + 1].place == place;
    }

    void take_header(const TraceStep& step) {
        explain_all(step.line, step.messages);
        if (!next_is(PLACE_WORD)) {
            warn(step.line, "a '[' without a ']': the daemon takes the file for broken, and watches nothing");
            return;
        }
        check_name(step.line, "the section's name", step.text, sizeof(setting_info::section_name) - 1);
        if (!step.first) {
            const bool is_first_section = found_.sections.empty();
            warn(step.line, std::string("a '[' inside a line begins a section") +
                                (is_first_section ? "" : ", and takes the place of the character before it"));
        }
        if (step.text.find('\n') != std::string::npos) {
            warn(step.line, "the section's name runs over the end of the line: its ']' is missing");
        }
        begin_section(step);
    }

    void begin_section(const TraceStep& step) {
        const std::string name = step.text.substr(0, sizeof(setting_info::section_name) - 1);
        const setting_info* const setting = find_section(setting_list, name.c_str());
        std::vector<SectionLines>& sections = found_.sections;
        const auto known =
            std::find_if(sections.begin(), sections.end(),
                         [setting](const SectionLines& lines) { return lines.setting == setting; });
        section_ = static_cast<size_t>(known - sections.begin());
        if (known != sections.end()) {
            known->repetitions.push_back(step.line);
        } else {
            sections.push_back({setting, step.line});
        }
        header_line_ = step.line;
        trigger_ = 0;
        given_.clear();
        open_.clear();
    }

    void take_word(const TraceStep& step) {
        field_ = find_field(step.text.c_str());
        if (at_ > 0 && has_message(steps_[at_ - 1], NOT_READ)) {
            return;  // the value of that field, which has its warning
        }
        if (has_message(step, "Ignoring unknown field")) {
            check_unknown_word(step);
        } else if (has_message(step, OUTSIDE)) {
            found_.findings.push_back(
                {step.line, "a field outside the sections has no effect", step.messages[0], !is_prose(step)});
        } else if (has_message(step, NOT_FIRST)) {
            const std::string correction = correct_keyword(step.text);
            warn(step.line,
                 "the section is skipped: its first field must be algo_type" +
                     (correction.empty() ? ", not " + quoted(step.text) : "; " + correction),
                 step.messages[0]);
        } else if (has_message(step, "Error in section")) {
            // An empty section ends where the next one begins.
            explain_all(header_line_, step.messages);
        } else {
            explain_all(step.line, step.messages);
        }
        if (!found_.sections.empty() && field_ != nullptr && !next_is(PLACE_VALUE) &&
            !has_message(step, NOT_FIRST)) {
            warn(step.line, step.text + " has no value");
        }
    }

    // Whether the line that begins with the word has more words than a field takes. A sign counts for none,
    // nor does a remark.
    bool is_prose(const TraceStep& step) const {
        const size_t end = std::min(text_.find('\n', step.offset), text_.size());
        size_t count = 0;
        for (const std::string& word : split(text_.substr(step.offset, end - step.offset), WORD_SEPARATORS)) {
            if (word[0] == '#') {
                break;
            }
            const bool is_action = word.find('+') != std::string::npos;
            count += is_action || word == "=" || word == ":" ? 0 : 1;
        }
        return count > 2;
    }

    // A line that is passed over: a misspelt keyword, or somebody's remark.
    void check_unknown_word(const TraceStep& step) {
        if (step.text[0] == '#') {
            return;
        }
        const std::string& log = step.messages[0];
        const bool is_remark = found_.sections.empty() || is_prose(step);
        const std::string correction = is_remark ? "" : correct_keyword(step.text);
        if (!correction.empty()) {
            warn(step.line, "the line is passed over: " + correction, log);
        } else if (!is_remark && strcasecmp(step.text.c_str(), "algo_type") == 0) {
            warn(step.line, "algo_type counts as the first field of a section only", log);
        } else {
            found_.findings.push_back(
                {step.line, quoted(step.text) + " is no field: its line is passed over", log, false});
        }
    }

    // Whether the value is missing, so that the field took what follows on it. Warns of that.
    bool is_missing(const std::vector<std::string>& words) {
        if (words.empty() || (words[0][0] != '#' && !is_keyword(words[0]))) {
            return false;
        }
        const TraceStep& keyword = steps_[at_ - 1];
        warn(keyword.line, keyword.text + " takes " + quoted(words[0]) + ": its own value is missing");
        return true;
    }

    void take_algo(const TraceStep& step) {
        const std::vector<std::string> words = split(step.text, WORD_SEPARATORS);
        const bool missing = is_missing(words);
        const int line = missing ? steps_[at_ - 1].line : step.line;
        if (has_message(step, NO_SERVER)) {
            const bool is_repetition = header_line_ != found_.sections[section_].header;
            warn(line,
                 "the section is skipped: its algo_type " + quoted(words[0]) + " is neither listen nor poll" +
                     desk::did_you_mean(words[0], {"listen", "poll"}) +
                     (is_repetition ? "; what stands earlier of it has no effect either" : ""),
                 step.messages[0]);
        } else {
            explain_all(line, step.messages);
        }
        if (missing) {
            return;
        }
        check_sign(step.line, words);
        if (words.size() > 1) {
            warn(step.line, "algo_type takes the first word only, " + quoted(words[0]));
        }
    }

    void take_value(const TraceStep& step) {
        if (has_message(step, NOT_READ)) {
            explain_all(step.line, step.messages);
            return;
        }
        if (!has_message(step, "_section failed!")) {
            place_value(step);
        }
        const std::vector<std::string> words = split(step.text, WORD_SEPARATORS);
        const bool missing = is_missing(words);
        explain_all(missing ? steps_[at_ - 1].line : step.line, step.messages);
        if (!missing && !words.empty()) {
            check_value(step.line, words);
        }
    }

    // Where a value stands that the section has now, and what it takes the place of.
    void place_value(const TraceStep& step) {
        SectionLines& lines = found_.sections[section_];
        const field_code code = field_->code;
        if (code <= FIELD_NUM_TRIGGERS && !given_.insert(code).second) {
            warn(step.line, std::string(field_->keyword) + " stands in the section already: this one counts" +
                                (code == FIELD_NUM_TRIGGERS ? ", and the triggers so far are gone" : ""));
        }
        switch (code) {
            case FIELD_CLIENT_NAME:
                lines.client = step.line;
                break;
            case FIELD_NUM_TRIGGERS:
                lines.num_triggers = step.line;
                lines.triggers.clear();
                open_.clear();
                break;
            case FIELD_ERROR_NO:
                open(step);
                lines.triggers[trigger_].number = step.line;
                break;
            case FIELD_RUNNING_TEST_SWITCH:
                open(step);
                break;
            case FIELD_ACTION:
                lines.triggers[trigger_].action = step.line;
                open_.clear();
                ++trigger_;
                break;
            default:
                break;
        }
    }

    // Takes the value into the trigger that the next action completes.
    void open(const TraceStep& step) {
        const TraceStep*& earlier = open_[field_->code];
        if (earlier != nullptr) {
            warn(earlier->line,
                 std::string(field_->keyword) + " " + split(earlier->text, WORD_SEPARATORS)[0] +
                     " has no action of its own: line " + std::to_string(step.line) + " takes its place");
        }
        earlier = &step;
    }

    // What a value loses without a word of the parser.
    void check_value(int line, const std::vector<std::string>& words) {
        check_sign(line, words);
        if (name_limits.count(field_->code) != 0) {
            check_name_value(line, words);
        } else if (field_->code == FIELD_ACTION) {
            check_actions(line, words);
        } else if (field_->code == FIELD_ERROR_NO || words.size() == 1) {
            check_number(line, field_->keyword, words[0]);
            if (words.size() > 1) {
                warn(line, "error_no takes the first number only, " + quoted(words[0]));
            }
        }
    }

    // Other files have a sign between keyword and value.
    void check_sign(int line, const std::vector<std::string>& words) {
        if (!words.empty() && (words[0][0] == '=' || words[0][0] == ':')) {
            warn(line,
                 "the " + quoted(words[0].substr(0, 1)) + " counts as a part of the value; leave it out");
        }
    }

    void check_name_value(int line, const std::vector<std::string>& words) {
        const std::string keyword = field_->keyword;
        check_name(line, keyword, words[0], name_limits.at(field_->code));
        if (words.size() > 1) {
            warn(line, keyword + " takes the first word only, " + quoted(words[0]));
        }
    }

    void check_actions(int line, const std::vector<std::string>& words) {
        int stored = 0;
        for (const std::string& word : words) {
            const std::vector<std::string> parts = split(word, "+");
            if (stored == MAX_ACTIONS) {
                warn(line, "only the first " + std::to_string(MAX_ACTIONS) + " actions count; " +
                               quoted(word) + " and what follows is cut off");
                return;
            }
            if (parts.empty()) {
                return;  // a "+" alone, where the parser ends too
            }
            if (parts.size() < 2) {
                continue;  // the parser has complained
            }
            check_name(line, "client", parts[0], sizeof(action_config::client_name) - 1);
            check_number(line, "slot", parts[1]);
            if (parts.size() > 2) {
                warn(line, "of the action " + quoted(word) + " only " + quoted(parts[0] + "+" + parts[1]) +
                               " counts");
            }
            ++stored;
        }
    }

    void check_name(int line, const std::string& what, const std::string& name, size_t limit) {
        if (name.size() > limit) {
            warn(line, what + " " + quoted(name) + " is cut off to " + quoted(name.substr(0, limit)));
        }
    }

    void check_number(int line, const std::string& what, const std::string& word) {
        char* end = nullptr;
        const double value = strtod(word.c_str(), &end);
        const int32_t stored = to_int32(value);
        if (end == word.c_str()) {
            warn(line, what + " " + quoted(word) + " is no number, and counts as 0");
        } else if (*end != '\0' || value != static_cast<double>(stored)) {
            warn(line, what + " " + quoted(word) + " counts as " + std::to_string(stored));
        }
    }

    const std::string& text_;
    const std::vector<TraceStep>& steps_;
    size_t at_ = 0;
    StepFindings found_;
    const config_field* field_ = nullptr;  // of the last word, null when that is no keyword
    size_t section_ = 0;                   // which of the sections this is
    int header_line_ = 0;
    int32_t trigger_ = 0;         // index of the slot that the next action line completes
    std::set<field_code> given_;  // what the section has so far of the fields that count once
    std::map<field_code, const TraceStep*> open_;  // the fields that wait for their trigger's action
};

}  // namespace

StepFindings find_in_steps(const ConfigTrace& trace) {
    return StepWalk(trace).run();
}

}  // namespace tools
