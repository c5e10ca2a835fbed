// Turning the parser's steps and messages into what a person can act on.
#include "tools/config_findings.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "config/value_readers.h"
#include "platform/text.h"

namespace tools {
namespace {

#define REST_UNREAD "; the rest of the section is not read"

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
    {"Found filed ", "a field outside the sections has no effect"},
    {"Error in section", "the section is empty, and does nothing"},
    {"algo_type field not first field", "the section is skipped: its first field must be algo_type"},
    {"Unknown algo", "the section is skipped: its algo_type is neither listen nor poll"},
    {"Error in file", "a word without an end" REST_UNREAD},
    {"Unkown record!", "sampling_period has no effect in a listen section"},
    {"has invalid action info config", "an action without \"+slot\" is left out"},
    {"Invalid action config", "a \"+\" alone: the actions behind it are not read"},
    {"Ivalid error action filed", "not one valid action" REST_UNREAD},
    {"Invalid trigger buf malloc failed", "num_triggers is below 0 or far too large" REST_UNREAD},
    {"wrong trigger number",
     "num_triggers must come first and count all triggers: none is open here" REST_UNREAD},
    {"Invalid trigger buf",
     "num_triggers must come first and count all triggers: none is open here" REST_UNREAD},
    {"Invalid trigger numbers value", "num_triggers must be exactly one number" REST_UNREAD},
    {"Invalid sampling period value", "sampling_period must be exactly one number" REST_UNREAD},
    {"valid ", "no value that can be read" REST_UNREAD},
};

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

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// Number of characters that must change to make one word of the other, in any case of letters.
size_t distance(const std::string& one, const std::string& other) {
    std::vector<size_t> row(other.size() + 1);
    for (size_t j = 0; j <= other.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= one.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= other.size(); ++j) {
            const bool same = strncasecmp(&one[i - 1], &other[j - 1], 1) == 0;
            const size_t replaced = diagonal + (same ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[other.size()];
}

// The keyword that the word may have been meant to be, or null.
const char* similar_keyword(const std::string& word) {
    constexpr size_t word_max = 32;
    for (const config_field& field : config_field_table) {
        const std::string keyword = field.keyword;
        const size_t slips = keyword.size() > 8 ? 2 : 1;
        if (word.size() <= word_max && distance(word, keyword) <= slips) {
            return field.keyword;
        }
    }
    return nullptr;
}

bool is_keyword(const std::string& word) {
    return find_field(word.c_str()) != nullptr || strcasecmp(word.c_str(), "algo_type") == 0;
}

// Bytes of a name that are kept, 0 when the field is no name.
size_t name_limit(field_code field) {
    switch (field) {
        case FIELD_CLIENT_NAME:
            return sizeof(setting_info::client_name) - 1;
        case FIELD_DEVICE_NAME:
            return sizeof(setting_info::device_name) - 1;
        case FIELD_IC_NAME:
            return sizeof(setting_info::ic_name) - 1;
        case FIELD_MODULE_NAME:
            return sizeof(setting_info::module_name) - 1;
        case FIELD_RUNNING_TEST_SWITCH:
            return sizeof(trigger_info::running_test_switch) - 1;
        default:
            return 0;
    }
}

// What was found so far.
class Findings {
  public:
    void warn(int line, const std::string& text, const std::string& log = "") {
        list_.push_back({line, true, text, log});
    }
    void note(int line, const std::string& text, const std::string& log) {
        list_.push_back({line, false, text, log});
    }
    std::vector<Finding> take() { return std::move(list_); }

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

    void check_name_value(const TraceStep& step, const std::vector<std::string>& words) {
        const std::string keyword = config_field_table[step.field].keyword;
        if (is_keyword(words[0])) {
            warn(step.line, keyword + " takes the word " + quoted(words[0]) + ": its own value is missing");
            return;
        }
        check_name(step.line, keyword, words[0], name_limit(step.field));
        if (words.size() > 1) {
            warn(step.line, keyword + " takes the first word only, " + quoted(words[0]));
        }
    }

    void check_actions(const TraceStep& step, const std::vector<std::string>& words) {
        int stored = 0;
        for (const std::string& word : words) {
            const std::vector<std::string> parts = split(word, "+");
            if (stored == MAX_ACTIONS) {
                warn(step.line, "only the first " + std::to_string(MAX_ACTIONS) + " actions count; " +
                                    quoted(word) + " and what follows is cut off");
                return;
            }
            if (parts.empty()) {
                return;  // a "+" alone, where the parser ends too
            }
            if (parts.size() < 2) {
                continue;  // the parser has complained
            }
            check_name(step.line, "client", parts[0], sizeof(action_config::client_name) - 1);
            check_number(step.line, "slot", parts[1]);
            if (parts.size() > 2) {
                warn(step.line, "of the action " + quoted(word) + " only " +
                                    quoted(parts[0] + "+" + parts[1]) + " counts");
            }
            ++stored;
        }
    }

    // What a value loses without a word of the parser.
    void check_value(const TraceStep& step) {
        const std::vector<std::string> words = split(step.text, WORD_SEPARATORS);
        if (words.empty()) {
            return;
        }
        if (name_limit(step.field) > 0) {
            check_name_value(step, words);
        } else if (step.field == FIELD_ACTION) {
            check_actions(step, words);
        } else if (step.field == FIELD_ERROR_NO || words.size() == 1) {
            check_number(step.line, config_field_table[step.field].keyword, words[0]);
            if (words.size() > 1) {
                warn(step.line, "error_no takes the first number only, " + quoted(words[0]));
            }
        }
    }

    void check_header(const TraceStep& step, bool is_first_section) {
        check_name(step.line, "the section's name", step.text, sizeof(setting_info::section_name) - 1);
        if (!step.first) {
            warn(step.line, std::string("a \"[\" inside a line begins a section") +
                                (is_first_section ? "" : ", and takes the place of the character before it"));
        }
        if (step.text.find('\n') != std::string::npos) {
            warn(step.line, "the section's name runs over the end of the line: its \"]\" is missing");
        }
    }

    // A line that is passed over: a misspelt keyword, or somebody's comment.
    void check_unknown_word(const TraceStep& step, const std::string& log) {
        if (const char* const meant = similar_keyword(step.text)) {
            warn(step.line,
                 quoted(step.text) + " is no field, and its line is passed over; is " + meant + " meant?",
                 log);
        } else if (strcasecmp(step.text.c_str(), "algo_type") == 0) {
            warn(step.line, "algo_type counts as the first field of a section only", log);
        } else {
            note(step.line, quoted(step.text) + " is no field: its line is passed over", log);
        }
    }

    void check_messages(const TraceStep& step, int header_line) {
        for (const std::string& message : step.messages) {
            if (step.place == PLACE_WORD && message.find("Ignoring unknown field") != std::string::npos) {
                check_unknown_word(step, message);
                continue;
            }
            // An empty section ends where the next one begins.
            const bool is_empty = message.find("Error in section") != std::string::npos;
            explain(is_empty ? header_line : step.line, message);
        }
    }

    void explain(int line, const std::string& message) {
        for (const auto& complaint : complaints) {
            if (message.find(complaint.part) != std::string::npos) {
                const size_t reason = message.find("err_info:");
                if (*complaint.explanation != '\0') {
                    warn(
                        line,
                        complaint.explanation +
                            (reason != std::string::npos ? ": " + message.substr(reason + 9) : std::string()),
                        message);
                }
                return;
            }
        }
        warn(line, message, message);
    }

  private:
    std::vector<Finding> list_;
};

}  // namespace

std::vector<Finding> find_in_steps(const ConfigTrace& trace) {
    Findings findings;
    for (const std::string& message : trace.messages) {
        findings.explain(0, message);
    }
    int header_line = 0;
    bool is_first_section = true;
    std::set<field_code> given;              // what the section has so far of the fields that count once
    const TraceStep* open_number = nullptr;  // the error_no that waits for its action
    for (size_t i = 0; i < trace.steps.size(); ++i) {
        const TraceStep& step = trace.steps[i];
        const TraceStep* const next = i + 1 < trace.steps.size() ? &trace.steps[i + 1] : nullptr;
        if (i > 0 && has_message(trace.steps[i - 1], "Unkown record!")) {
            continue;  // the value of the field that has no effect
        }
        if (step.place == PLACE_HEADER) {
            header_line = step.line;
            open_number = nullptr;
            given.clear();
        }
        if (step.place == PLACE_VALUE && step.field <= FIELD_NUM_TRIGGERS && step.messages.empty() &&
            !given.insert(step.field).second) {
            findings.warn(step.line,
                          std::string(config_field_table[step.field].keyword) +
                              " stands in the section already: this one counts" +
                              (step.field == FIELD_NUM_TRIGGERS ? ", and the triggers so far are gone" : ""));
        }
        if (step.place == PLACE_VALUE && step.field == FIELD_ERROR_NO && step.messages.empty()) {
            if (open_number != nullptr) {
                findings.warn(open_number->line, "error_no " + split(open_number->text, WORD_SEPARATORS)[0] +
                                                     " has no action of its own: line " +
                                                     std::to_string(step.line) + " takes its place");
            }
            open_number = &step;
        } else if (step.place == PLACE_VALUE &&
                   (step.field == FIELD_ACTION || step.field == FIELD_NUM_TRIGGERS)) {
            open_number = nullptr;
        }
        findings.check_messages(step, header_line);
        switch (step.place) {
            case PLACE_HEADER:
                if (next != nullptr || trace.parsed) {
                    findings.check_header(step, is_first_section);
                    is_first_section = false;
                } else {
                    findings.warn(
                        step.line,
                        "a \"[\" without a \"]\": the daemon takes the file for broken, and watches nothing");
                }
                break;
            case PLACE_WORD:
                if (step.setting != nullptr && find_field(step.text.c_str()) != nullptr &&
                    !has_message(step, "algo_type field not first") &&
                    (next == nullptr || next->place != PLACE_VALUE)) {
                    findings.warn(step.line, step.text + " has no value");
                }
                break;
            case PLACE_ALGO:
                if (split(step.text, WORD_SEPARATORS).size() > 1) {
                    findings.warn(step.line, "algo_type takes the first word only, " +
                                                 quoted(split(step.text, WORD_SEPARATORS)[0]));
                }
                break;
            case PLACE_VALUE:
                if (!has_message(step, "Unkown record!")) {
                    findings.check_value(step);
                }
                break;
            default:
                break;
        }
    }
    return findings.take();
}

}  // namespace tools
