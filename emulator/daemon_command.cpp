// The sending end of the daemon's command socket.
#include "emulator/daemon_command.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "emulator/refusal.h"
#include "platform/owned.h"
#include "triggers/command_message.h"

namespace phone {

void send_command(const std::string& client, bool test_switch, int32_t number) {
    dmd_command_message message = {};
    if (client.size() >= sizeof(message.client_name)) {
        throw Refusal("the name of a client has at most " + std::to_string(sizeof(message.client_name) - 1) +
                      " bytes in a command");
    }
    memcpy(message.client_name, client.data(), client.size());
    message.test_switch_type = test_switch ? DMD_TEST_SWITCH_ON : DMD_TEST_SWITCH_OFF;
    message.data = number;

    // The driver server sends this, and nobody may hold it up, not even a daemon that accepts nothing.
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.valid()) {
        throw refusal_errno("no socket to reach the daemon with");
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    static_assert(sizeof(DMD_COMMAND_SOCKET) <= sizeof(address.sun_path), "the path fits an address");
    memcpy(address.sun_path, DMD_COMMAND_SOCKET, sizeof(DMD_COMMAND_SOCKET));
    if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        if (errno == EAGAIN) {
            throw Refusal("the daemon accepts no more commands at " DMD_COMMAND_SOCKET
                          " before it has done those that wait there");
        }
        throw refusal_errno("the daemon does not listen at " DMD_COMMAND_SOCKET " (yet)");
    }
    if (send(fd.get(), &message, sizeof(message), MSG_NOSIGNAL) != ssize_t{sizeof(message)}) {
        throw refusal_errno("the daemon takes no command at " DMD_COMMAND_SOCKET);
    }
}

}  // namespace phone
