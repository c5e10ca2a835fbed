// Sends any bytes to the handler of command messages and checks which dumps it asks for.
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "platform/desk/log.h"
#include "tests/fuzz/entry_lines.h"
#include "triggers/command_message.h"
#include "triggers/command_server.h"

namespace {

struct dump {
    std::string name;
    int error_no;
    int slot;
    std::string test_switch;

    bool operator==(const dump& other) const {
        return name == other.name && error_no == other.error_no && slot == other.slot &&
               test_switch == other.test_switch;
    }
};

dmd_client client;
std::string name_asked_for;
std::vector<dump> dumps;

// Half of all names are clients'.
bool is_client(const std::string& name) {
    return !name.empty() && name[0] % 2 == 0;
}

// What the handler is to make of one message.
void expect(const char* message, std::vector<dump>* expected) {
    const std::string name(message, strnlen(message, 31));
    uint32_t test_switch = 0;
    int32_t error_no = 0;
    memcpy(&test_switch, message + 32, 4);
    memcpy(&error_no, message + 36, 4);
    if (is_client(name) && test_switch <= 1) {
        expected->push_back({name, error_no, 0, test_switch == 0 ? "on" : "off"});
    }
}

void discard(int /*priority*/, const char* /*tag*/, const char* text) {
    require(strlen(text) > 0);
}

}  // namespace

// In place of the registry and the dispatch.
dmd_client* get_client_by_name(const char* name) {
    name_asked_for = name;
    return is_client(name) ? &client : nullptr;
}

int dmd_force_dump_error(dmd_client* target, int error_no, int slot, const char* RT_switch) {
    require(target == &client);
    dumps.push_back({name_asked_for, error_no, slot, RT_switch});
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    desk_log_set_sink(discard);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0);
    const UniqueFd application(ends[0]);
    const UniqueFd connection(ends[1]);
    require(send(application.get(), data, size, 0) == static_cast<ssize_t>(size));
    dumps.clear();
    std::vector<dump> expected;
    constexpr size_t MESSAGE_SIZE = sizeof(dmd_command_message);
    for (size_t at = 0; at < size; at += MESSAGE_SIZE) {
        require(dmd_recv_cmd_from_apk(connection.get()) > 0);
        if (size - at >= MESSAGE_SIZE) {
            expect(reinterpret_cast<const char*>(data) + at, &expected);
        }
        require(dumps == expected);
    }
    require(dmd_recv_cmd_from_apk(connection.get()) == -1 && errno == EAGAIN);
    return 0;
}
