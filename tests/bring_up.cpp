#include "tests/bring_up.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>

#include "clients/registry.h"
#include "config/config_parser.h"
#include "triggers/command_message.h"

std::string section_text(const std::string& server, const std::string& client, const std::string& fields) {
    return "[" + client + " " + server + "]\nalgo_type " + server + "\nclient_name " + client + "\n" + fields;
}

std::string trigger(int error_no, const std::string& actions) {
    return "error_no " + std::to_string(error_no) + "\nrunning_test_switch on\naction " + actions + "\n";
}

void bring_up(const std::string& configuration, bool commercial) {
    set_commercial(commercial);
    ASSERT_EQ(0, dmd_client_init());
    write_file("/system/etc/device_state_monitor.conf", configuration);
    ASSERT_EQ(0, parse_config_file(nullptr));
}

std::vector<std::string> messages_of(const std::string& operation, const LogCapture& log) {
    const std::string prefix = "[M/" + operation + "] ";
    std::vector<std::string> messages;
    for (const std::string& line : log.lines()) {
        if (line.find(prefix) == 0) {
            messages.push_back(line.substr(prefix.size()));
        }
    }
    return messages;
}

bool connect_to_commands(const UniqueFd& socket) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, DMD_COMMAND_SOCKET);
    return connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

UniqueFd connect_to_commands() {
    UniqueFd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!connect_to_commands(connection)) {
        connection.reset();
    }
    return connection;
}

std::string command_message(const std::string& client, uint32_t test_switch_type, int32_t error_no) {
    dmd_command_message message = {};
    memcpy(message.client_name, client.data(), std::min(client.size(), sizeof message.client_name));
    message.test_switch_type = test_switch_type;
    message.data = error_no;
    return std::string(reinterpret_cast<const char*>(&message), sizeof message);
}

bool send_bytes(const UniqueFd& connection, const std::string& bytes) {
    return send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}
