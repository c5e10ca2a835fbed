// The command thread: accepting connections, taking their messages, and forcing the dumps they ask for.
#include "triggers/command_server.h"

#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "clients/dispatch.h"
#include "clients/dsm_device.h"
#include "clients/registry.h"
#include "platform/log.h"
#include "platform/monotonic_clock.h"
#include "platform/owned.h"
#include "platform/text.h"
#include "triggers/command_message.h"

namespace {

constexpr char OPERATION[] = "dmd_cmd_thread";

constexpr int SETUP_FAILED = -22;
constexpr mode_t SOCKET_MODE = 0660;
constexpr int BACKLOG = 10;
// Descriptors that the reports of all threads may need at one time.
constexpr int REPORT_DESCRIPTORS = 64;
// How long a connection that cannot be accepted stays in the queue before the next try.
constexpr time_t QUEUE_REST_SECONDS = 1;
// How long the log keeps silent about further connections that were closed at once.
constexpr int64_t SILENCE_US = 60000000;
constexpr int FORCE_DUMP_SLOT = 0;

#ifndef SO_PASSRIGHTS
#define SO_PASSRIGHTS 83  // Linux 6.16
#endif

// By test_switch_type.
constexpr const char* TEST_SWITCHES[] = {"on", "off"};
static_assert(DMD_TEST_SWITCH_ON == 0 && DMD_TEST_SWITCH_OFF == 1, "TEST_SWITCHES is in this order");

int listening_socket = -1;
pthread_t command_thread;

sockaddr_un socket_address() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    copy_text(address.sun_path, DMD_COMMAND_SOCKET);
    return address;
}

// Whether a connection can be served. The lowest free number is given out first, so the numbers above this
// one must suffice for the servers that are still binding and for the reports.
bool has_room_for(int connection) {
    rlimit limit = {};
    const rlim_t allowed = getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
    const auto end = static_cast<int>(std::min<rlim_t>(allowed, FD_SETSIZE));
    return connection + descriptors_to_bind + REPORT_DESCRIPTORS < end;
}

// Tells of the connections that were refused since the last such line.
void log_refusal() {
    static int64_t silent_until_us = 0;
    static int refused = 0;
    ++refused;
    const int64_t now = monotonic_us();
    if (now >= silent_until_us) {
        LOG_M_AS(OPERATION, "no room for a client, %d refused\n", refused);
        refused = 0;
        silent_until_us = now + SILENCE_US;
    }
}

// Takes a connection from the queue. Where the process has no descriptor for it, it stays there and the queue
// stays readable: waits a moment, or until a connection can be read, so that the thread does not spin.
void accept_connection(fd_set* watched) {
    sockaddr_un address = {};
    socklen_t size = sizeof address;
    // No peer can block the thread.
    UniqueFd connection(accept4(listening_socket, reinterpret_cast<sockaddr*>(&address), &size,
                                SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!connection.valid()) {
        fd_set connections = *watched;
        FD_CLR(listening_socket, &connections);
        timeval limit = {QUEUE_REST_SECONDS, 0};
        select(FD_SETSIZE, &connections, nullptr, nullptr, &limit);
        return;
    }
    if (!has_room_for(connection.get())) {
        log_refusal();
        return;
    }
    // Urgent bytes are received like all others. Kept apart they would count as waiting for ever.
    const int in_line = 1;
    setsockopt(connection.get(), SOL_SOCKET, SO_OOBINLINE, &in_line, sizeof in_line);
    const int fd = connection.release();
    FD_SET(fd, watched);
}

void serve_connection(int connection, fd_set* watched) {
    int waiting = 0;
    ioctl(connection, FIONREAD, &waiting);
    LOG_D_AS(OPERATION, "Need to read %d bytes\n", waiting);
    if (waiting > 0 && dmd_recv_cmd_from_apk(connection) > 0) {
        return;
    }
    close(connection);
    FD_CLR(connection, watched);
    LOG_M_AS(OPERATION, "Removing client on fd %d\n", connection);
}

void force_dump(const dmd_command_message& message) {
    constexpr char operation[] = "dmd_recv_cmd_from_apk";
    dmd_client* const client = get_client_by_name(message.client_name);
    if (client == nullptr) {
        LOG_M_AS(operation, "%s is not found in dmd client list\n", message.client_name);
        return;
    }
    if (message.test_switch_type >= std::size(TEST_SWITCHES)) {
        LOG_M_AS(operation, "unkown runnig test switch type.");
        return;
    }
    dmd_force_dump_error(client, message.data, FORCE_DUMP_SLOT, TEST_SWITCHES[message.test_switch_type]);
}

}  // namespace

ssize_t dmd_recv_cmd_from_apk(int connection) {
    dmd_command_message message = {};
    const ssize_t received = recv(connection, &message, sizeof message, 0);
    if (received <= 0) {
        LOG_M("Recv command failed\n");
    } else if (received != sizeof message) {
        LOG_M("Recv command length not match\n");
    } else {
        message.client_name[sizeof message.client_name - 1] = '\0';
        LOG_M("Received msg - name:%s data:%d\n", message.client_name, message.data);
        force_dump(message);
    }
    return received;
}

void* dmd_cmd_thread(void* /*argument*/) {
    fd_set watched;
    FD_ZERO(&watched);
    FD_SET(listening_socket, &watched);
    for (;;) {
        fd_set ready = watched;
        if (select(FD_SETSIZE, &ready, nullptr, nullptr, nullptr) <= 0) {
            LOG_M("Command-Server select error\n");
            return nullptr;
        }
        for (int fd = 0; fd < FD_SETSIZE; ++fd) {
            if (!FD_ISSET(fd, &ready)) {
                continue;
            }
            if (fd == listening_socket) {
                accept_connection(&watched);
            } else {
                serve_connection(fd, &watched);
            }
        }
    }
}

int dmd_command_sever_init() {
    listening_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // select could not watch a larger one.
    if (listening_socket < 0 || listening_socket >= FD_SETSIZE) {
        LOG_M("Unable to create socket server for device monitor\n");
        return SETUP_FAILED;
    }
    // Where the kernel can, it refuses descriptors that a peer passes along: closing one can take as long as
    // the peer likes. Connections inherit this.
    const int refused = 0;
    setsockopt(listening_socket, SOL_SOCKET, SO_PASSRIGHTS, &refused, sizeof refused);
    // bind gives the file this mode, so it is never wider than in the end.
    fchmod(listening_socket, SOCKET_MODE);
    const sockaddr_un address = socket_address();
    unlink(DMD_COMMAND_SOCKET);
    if (bind(listening_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        LOG_M("Recv socket: bind error - %s", strerror(errno));
        return SETUP_FAILED;
    }
    // The umask may have narrowed it.
    if (chmod(DMD_COMMAND_SOCKET, SOCKET_MODE) != 0) {
        LOG_M("Recv socket: chmod error - %s", strerror(errno));
        return SETUP_FAILED;
    }
    if (listen(listening_socket, BACKLOG) != 0) {
        LOG_M("Recv socket: listen error - %s", strerror(errno));
        return SETUP_FAILED;
    }
    if (pthread_create(&command_thread, nullptr, dmd_cmd_thread, nullptr) != 0) {
        LOG_M("Unable to create pthread to process command\n");
        return SETUP_FAILED;
    }
    LOG_M("command server init success, fd - %d\n", listening_socket);
    return 0;
}
