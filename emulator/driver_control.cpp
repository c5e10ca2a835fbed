// The requests of the control socket, one row of a table each.
#include "emulator/driver_control.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <iterator>

#include "desk/command_line.h"
#include "emulator/daemon_command.h"
#include "emulator/key_devices.h"
#include "emulator/properties.h"
#include "emulator/refusal.h"

namespace phone {

namespace {

// The FUSE interface takes no errno from here on.
constexpr int ERRNO_END = 512;

constexpr const char* REQUEST_NAMES[REQUEST_COUNT] = {
    "open", "bind", "state", "force", "error", "device_name", "module_name", "ic_name", "read", "bits"};

constexpr const char* FAULT_NAMES[static_cast<size_t>(Fault::count)] = {
    "none",           "always-readable", "never-readable", "never-wakes", "one-readable",
    "force-readable", "force-last",      "read-waits",     "read-keeps"};

// Which of the names it is.
template <size_t N>
size_t index_in(const char* const (&names)[N], const std::string& name, const char* what) {
    const auto* const found = std::find(std::begin(names), std::end(names), name);
    if (found == std::end(names)) {
        throw Refusal("there is no " + std::string(what) + " '" + name + "'");
    }
    return static_cast<size_t>(found - names);
}

template <typename Number>
Number number_in(const std::string& word, const char* what) {
    Number value = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || stop != end || word.empty()) {
        throw Refusal(std::string(what) + " is a whole number of " + std::to_string(sizeof(Number) * 8) +
                      " bits, not '" + word + "'");
    }
    return value;
}

Client* client_in(ControlState* state, const std::string& name) {
    Client* client = driver_client(&state->driver, name);
    if (client == nullptr) {
        std::vector<std::string> names;
        for (const Client& known : state->driver.clients) {
            names.push_back(known.name);
        }
        throw Refusal(desk::no_such("client", name, names));
    }
    return client;
}

KeyDevice* key_device_in(ControlState* state, const std::string& name) {
    KeyDevice* device = key_device(&state->driver, name);
    if (device == nullptr) {
        throw Refusal("the phone has no input device '" + name + "': it has event0, event1 and event2");
    }
    return device;
}

std::string do_report(ControlState* state, const Words& words) {
    Client* client = client_in(state, words[1]);
    if (!driver_report(&state->driver, client, number_in<int32_t>(words[2], "the error"), words[3])) {
        const std::string what = client->pending.size() >= PENDING_MAX
                                     ? std::to_string(PENDING_MAX) + " errors of " + client->name + " wait"
                                     : "the texts of all clients together would be more than " +
                                           std::to_string(PENDING_BYTES_MAX) + " bytes";
        throw Refusal("the driver is full, " + what + ": let a program read them, or boot another phone");
    }
    return "";
}

std::string do_state(ControlState* state, const Words& words) {
    Client* client = client_in(state, words[1]);
    client->state = number_in<int32_t>(words[2], "the state");
    return "";
}

std::string do_names(ControlState* state, const Words& words) {
    Client* client = client_in(state, words[1]);
    for (size_t i = 2; i < words.size(); ++i) {
        if (words[i].size() > ARGUMENT_SIZE) {
            throw Refusal("a name has at most " + std::to_string(ARGUMENT_SIZE) + " bytes");
        }
    }
    std::copy(words.begin() + 2, words.end(), client->names);
    return "";
}

std::string do_client(ControlState* state, const Words& words) {
    if (words[1].empty() || words[1].size() > ARGUMENT_SIZE) {
        throw Refusal("the name of a client has 1 to " + std::to_string(ARGUMENT_SIZE) + " bytes");
    }
    if (driver_client(&state->driver, words[1]) == nullptr) {
        state->driver.clients.emplace_back().name = words[1];
    }
    return "";
}

// Where the answers of a client or an input device are that an answer to this request belongs to.
SetAnswer* answers_in(ControlState* state, const std::string& name, Request request) {
    if (KeyDevice* device = key_device(&state->driver, name)) {
        if (request != Request::open && request != Request::read && request != Request::bits) {
            throw Refusal("an input device takes an answer to open, read and bits");
        }
        return device->answers;
    }
    if (request == Request::bits) {
        throw Refusal(
            "only an input device is asked for bits: an answer to it is for event0, event1 or event2");
    }
    if (name == "*") {
        return state->driver.answers;
    }
    if (request == Request::open) {
        throw Refusal("the device is opened before it is bound: an answer to open is for client '*'");
    }
    return client_in(state, name)->answers;
}

std::string do_answer(ControlState* state, const Words& words) {
    const size_t index = index_in(REQUEST_NAMES, words[2], "request");
    const auto request = static_cast<Request>(index);
    SetAnswer* const answers = answers_in(state, words[1], request);
    SetAnswer answer;
    answer.result = number_in<int32_t>(words[3], "the result");
    answer.times = words.size() > 4 ? number_in<uint64_t>(words[4], "the number of times") : 0;
    const bool is_file_call = request == Request::open || request == Request::read;
    if (is_file_call && answer.result > 0) {
        throw Refusal("open and read fail with an errno (a result below zero) or work");
    }
    // The kernel takes ENOSYS as news about the file system and keeps it from the program.
    if (answer.result <= -ERRNO_END || answer.result == -ENOSYS) {
        throw Refusal("the kernel passes no such errno on");
    }
    answers[index] = answer.result != 0 ? answer : SetAnswer{};
    return "";
}

std::string do_answer_text(ControlState* state, const Words& words) {
    Client* client = client_in(state, words[1]);
    const size_t index = index_in(REQUEST_NAMES, words[2], "request");
    const auto request = static_cast<Request>(index);
    if (request != Request::state && request != Request::error) {
        throw Refusal("state and error take a text; names, force-text and report set the other ones");
    }
    if (words[3].size() > ARGUMENT_SIZE) {
        throw Refusal("an answer has at most " + std::to_string(ARGUMENT_SIZE) + " bytes");
    }
    client->answers[index] = SetAnswer{0, 0, words[3]};
    return "";
}

std::string do_fault(ControlState* state, const Words& words) {
    Client* client = client_in(state, words[1]);
    driver_set_fault(&state->driver, client, static_cast<Fault>(index_in(FAULT_NAMES, words[2], "fault")));
    return "";
}

std::string do_force_text(ControlState* state, const Words& words) {
    Client* client = client_in(state, words[1]);
    client->has_force_text = true;
    client->force_text = words[2];
    return "";
}

std::string do_image(ControlState* state, const Words& words) {
    state->driver.image = words[1];
    return "";
}

std::string do_pending(ControlState* state, const Words& words) {
    return std::to_string(client_in(state, words[1])->pending.size());
}

std::string do_handed(ControlState* state, const Words& words) {
    return std::to_string(client_in(state, words[1])->handed);
}

std::string do_bound(ControlState* state, const Words& words) {
    const Client* client = client_in(state, words[1]);
    const auto& files = state->driver.files;
    return std::to_string(std::count_if(files.begin(), files.end(),
                                        [client](const OpenFile& file) { return file.client == client; }));
}

std::string do_gone(ControlState* state, const Words&) {
    driver_set_gone(&state->driver, true);
    return "";
}

std::string do_back(ControlState* state, const Words&) {
    driver_set_gone(&state->driver, false);
    return "";
}

std::string do_reset(ControlState* state, const Words&) {
    driver_reset(&state->driver);
    return "";
}

std::string do_key(ControlState* state, const Words& words) {
    const KeyDevice* device = key_device_in(state, words[1]);
    const auto code = number_in<uint16_t>(words[2], "the code of a key");
    const auto value = number_in<int32_t>(words[3], "the value of a key");
    if (device->unplugged) {
        throw Refusal(words[1] + " is unplugged: reset the phone's drivers first");
    }
    if (!key_report(&state->driver, *device, code, value)) {
        throw Refusal(words[1] + " is full, " + std::to_string(KEY_EVENTS_MAX) +
                      " events wait in an open file: let the program read them");
    }
    return std::to_string(key_files(state->driver, *device));
}

std::string do_keys(ControlState* state, const Words& words) {
    KeyDevice* device = key_device_in(state, words[1]);
    decltype(device->keys) keys;
    for (size_t i = 2; i < words.size(); ++i) {
        const auto code = number_in<uint16_t>(words[i], "the code of a key");
        if (code >= keys.size()) {
            throw Refusal("a device has keys from 0 to " + std::to_string(keys.size() - 1) + ", not " +
                          words[i]);
        }
        keys.set(code);
    }
    device->keys = keys;
    return "";
}

std::string do_unplug(ControlState* state, const Words& words) {
    key_unplug(&state->driver, key_device_in(state, words[1]));
    return "";
}

std::string do_queued(ControlState* state, const Words& words) {
    return std::to_string(key_events(state->driver, *key_device_in(state, words[1])));
}

std::string do_opened(ControlState* state, const Words& words) {
    return std::to_string(key_files(state->driver, *key_device_in(state, words[1])));
}

std::string do_command(ControlState*, const Words& words) {
    if (words[2] != "on" && words[2] != "off") {
        throw Refusal("the test switch is on or off, not '" + words[2] + "'");
    }
    send_command(words[1], words[2] == "on", number_in<int32_t>(words[3], "the number"));
    return "";
}

std::string do_die(ControlState* state, const Words&) {
    state->die = true;
    return "";
}

std::string do_property(ControlState*, const Words& words) {
    if (words.size() == 2) {
        return read_property(words[1]);
    }
    write_property(words[1], words[2]);
    return "";
}

std::string do_log_dir(ControlState* state, const Words&) {
    return state->log_dir;
}

std::string do_build_dir(ControlState* state, const Words&) {
    return state->build_dir;
}

struct Row {
    const char* name;
    size_t least;  // words after the name
    size_t most;
    const char* usage;
    std::string (*run)(ControlState* state, const Words& words);
};

constexpr Row ROWS[] = {
    {"report", 3, 3, "CLIENT ERROR TEXT", do_report},
    {"state", 2, 2, "CLIENT NUMBER", do_state},
    {"names", 4, 4, "CLIENT DEVICE MODULE IC", do_names},
    {"client", 1, 1, "NAME", do_client},
    {"answer", 3, 4, "CLIENT REQUEST RESULT [TIMES]", do_answer},
    {"answer-text", 3, 3, "CLIENT state|error TEXT", do_answer_text},
    {"fault", 2, 2, "CLIENT FAULT", do_fault},
    {"force-text", 2, 2, "CLIENT TEXT", do_force_text},
    {"image", 1, 1, "TEXT", do_image},
    {"pending", 1, 1, "CLIENT", do_pending},
    {"handed", 1, 1, "CLIENT", do_handed},
    {"bound", 1, 1, "CLIENT", do_bound},
    {"gone", 0, 0, "", do_gone},
    {"back", 0, 0, "", do_back},
    {"reset", 0, 0, "", do_reset},
    {"die", 0, 0, "", do_die},
    {"key", 3, 3, "DEVICE CODE VALUE", do_key},
    {"keys", 1, 1 + KEY_CNT, "DEVICE [CODE...]", do_keys},
    {"unplug", 1, 1, "DEVICE", do_unplug},
    {"queued", 1, 1, "DEVICE", do_queued},
    {"opened", 1, 1, "DEVICE", do_opened},
    {"command", 3, 3, "CLIENT on|off NUMBER", do_command},
    {"property", 1, 2, "NAME [VALUE]", do_property},
    {"log-dir", 0, 0, "", do_log_dir},
    {"build-dir", 0, 0, "", do_build_dir},
};

}  // namespace

std::string control(ControlState* state, const Words& words) {
    const std::string name = words.empty() ? "" : words[0];
    const auto* const row = std::find_if(std::begin(ROWS), std::end(ROWS),
                                         [&name](const Row& other) { return name == other.name; });
    if (row == std::end(ROWS)) {
        throw Refusal("a phone does not understand '" + name + "'");
    }
    const size_t given = words.size() - 1;
    if (given < row->least || given > row->most) {
        throw Refusal("usage: " + name + " " + row->usage);
    }
    return row->run(state, words);
}

}  // namespace phone
