#include "tests/bring_up.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "clients/registry.h"
#include "config/config_parser.h"
#include "output/record_file.h"
#include "platform/text.h"
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

void name_device(const char* client, const char* device_name) {
    const MutexLock lock(client_names_lock);
    copy_text(get_client_by_name(client)->device_name, device_name);
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

void forget_record_file() {
    const MutexLock lock(output_lock);
    record.fd.reset();
}

std::vector<std::string> reports_on_disk() {
    constexpr char banner[] = "\n========Device Bugreport========\n";
    std::vector<std::string> reports;
    for (int index = 0; index < 4; ++index) {
        const std::string bytes = read_file(record_path(index));
        for (size_t at = 0, end; at < bytes.size(); at = end) {
            end = std::min(bytes.find(banner, at + 1), bytes.size());
            reports.push_back(bytes.substr(at, end - at));
        }
    }
    return reports;
}

std::vector<std::string> take_archived_beside_record() {
    std::istringstream list(output_of("cd /data/kvdx_logs/dmd_log; tar -tzf *.tar.gz; rm *.tar.gz"));
    std::vector<std::string> names;
    for (std::string name; std::getline(list, name);) {
        names.push_back(name);
    }
    const auto file = std::find(names.begin(), names.end(), std::string(RECORD + 1));
    EXPECT_NE(names.end(), file);
    if (file != names.end()) {
        names.erase(file);
    }
    std::sort(names.begin(), names.end());
    return names;
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
