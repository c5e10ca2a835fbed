// Sending a request, and looking for what became of it.
#include "emulator/requests.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "emulator/control_client.h"
#include "emulator/key_words.h"
#include "emulator/outcome.h"
#include "emulator/refusal.h"

namespace phone {

namespace {

// The text that "-" stands for.
std::string read_standard_input() {
    std::string text;
    char piece[65536];
    ssize_t got = 0;
    while ((got = read(STDIN_FILENO, piece, sizeof piece)) > 0) {
        text.append(piece, static_cast<size_t>(got));
        if (text.size() > WIRE_MESSAGE_MAX) {
            throw Refusal("the text is larger than " + std::to_string(WIRE_MESSAGE_MAX) + " bytes");
        }
    }
    if (got < 0) {
        throw refusal_errno("cannot read the text");
    }
    return text;
}

// A number as the daemon prints it: without a plus and leading zeros. What is none the phone refuses.
std::string plain_number(const std::string& word) {
    int32_t number = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, number);
    return error == std::errc() && stop == end ? std::to_string(number) : word;
}

int print_outcome(const std::string& line) {
    printf("%s\n", line.c_str());
    return 0;
}

}  // namespace

std::string socket_name(const Choices& choices) {
    const char* inside = getenv(CONTROL_VARIABLE);
    if (choices.name.empty() && inside != nullptr) {
        return inside;
    }
    return socket_of_phone(choices.name.empty() ? DEFAULT_NAME : choices.name);
}

std::string ask(const Choices& choices, const Words& words) {
    std::string answer;
    if (!request(socket_name(choices), words, &answer)) {
        throw Refusal(answer);
    }
    return answer;
}

int report(const Choices& choices) {
    const std::string& client = choices.words[0];
    const std::string error = plain_number(choices.words[1]);
    ask(choices, {"pending", client});  // refuses a client that there is not, before its text is read
    const std::string text = choices.words[2] == "-" ? read_standard_input() : choices.words[2];
    Outcome outcome(socket_name(choices), client);
    for (unsigned i = 0; i < choices.count; ++i) {
        if (i > 0) {
            usleep(choices.every_ms * 1000);
        }
        try {
            ask(choices, {"report", client, error, text});
        } catch (const Refusal& refusal) {
            throw choices.count == 1 ? refusal
                                     : Refusal("after " + std::to_string(i) + " of " +
                                               std::to_string(choices.count) + ": " + refusal.what());
        }
        outcome.read_log();
    }
    return choices.no_wait ? 0 : print_outcome(outcome.of_report(error, choices.count, text.size()));
}

int set_state(const Choices& choices) {
    const std::string state = plain_number(choices.words[1]);
    Outcome outcome(socket_name(choices));
    ask(choices, {"state", choices.words[0], state});
    return choices.no_wait ? 0 : print_outcome(outcome.of_state(choices.words[0], state));
}

int command(const Choices& choices) {
    const std::string number = plain_number(choices.words[2]);
    Outcome outcome(socket_name(choices));
    const std::string idle = outcome.why_idle();
    if (!idle.empty()) {
        throw Refusal(idle);
    }
    ask(choices, {"command", choices.words[0], choices.words[1], number});
    if (choices.no_wait) {
        return 0;
    }
    const std::string line = outcome.of_command(choices.words[0], number);
    if (line.empty()) {
        ask(choices, {"pending", choices.words[0]});  // says what client may be meant
    }
    return print_outcome(line);
}

int press_keys(const Choices& choices) {
    const std::vector<Words> requests = key_requests(choices.words);
    Outcome outcome(socket_name(choices));
    for (const Words& words : requests) {
        if (ask(choices, {"opened", words[1]}) == "0") {
            const std::string idle = outcome.why_idle();
            throw Refusal(!idle.empty()
                              ? idle
                              : "nobody has " + words[1] +
                                    " open: dmd opens the devices that have a volume key when it "
                                    "starts, none on a commercial build, and lets an unplugged one go");
        }
    }
    for (const Words& words : requests) {
        ask(choices, words);
    }
    if (choices.no_wait) {
        return 0;
    }
    const auto are_read = [&] {
        return std::all_of(requests.begin(), requests.end(), [&](const Words& words) {
            return ask(choices, {"queued", words[1]}) == "0";
        });
    };
    return print_outcome(outcome.of_keys(are_read));
}

}  // namespace phone
