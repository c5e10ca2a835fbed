// One loop over the FUSE descriptor, the control socket and its connections. Nothing here waits for a single
// peer: who connects and says nothing holds up nobody.
#include "emulator/driver_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <string>
#include <vector>

#include "emulator/control_client.h"
#include "emulator/driver_control.h"
#include "emulator/driver_fuse.h"
#include "emulator/refusal.h"
#include "platform/owned.h"

namespace phone {

namespace {

// Connections kept at a time. The oldest one makes room for a new one.
constexpr size_t CONNECTIONS_MAX = 32;
// Bytes taken from a connection at a time, so that a large request leaves room for the driver's own.
constexpr size_t RECEIVE_SIZE = 256 * 1024;

struct Connection {
    UniqueFd fd;
    std::string received;
};

bool is_own_user(int fd) {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

void accept_connection(int listen_fd, std::list<Connection>* connections) {
    UniqueFd fd(accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd.valid() || !is_own_user(fd.get())) {
        return;
    }
    if (connections->size() == CONNECTIONS_MAX) {
        connections->pop_front();
    }
    connections->push_back({std::move(fd), ""});
}

// Does a complete request and answers it; answers are short, so one that does not fit at once is for a peer
// that is not listening.
void answer(ControlState* state, const ServerOptions& doors, const Connection& connection) {
    Words words;
    Words reply;
    try {
        if (!decode_words(connection.received, &words)) {
            throw Refusal("that is not a list of words");
        }
        reply = {WIRE_DONE, control(state, words)};
    } catch (const Refusal& refusal) {
        reply = {WIRE_REFUSED, refusal.what()};
    }
    if (state->die) {
        // Who asked for a dead driver finds it dead when the answer comes.
        close(doors.fuse_fd);
        close(doors.listen_fd);
    }
    const std::string data = encode_words(reply);
    send(connection.fd.get(), data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (state->die) {
        _exit(0);
    }
}

// Takes what a connection has sent. False when the connection is over.
bool serve_connection(ControlState* state, const ServerOptions& doors, Connection* connection) {
    static std::vector<char> buffer(RECEIVE_SIZE);
    const ssize_t count = recv(connection->fd.get(), buffer.data(), buffer.size(), 0);
    if (count < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (count > 0) {
        connection->received.append(buffer.data(), static_cast<size_t>(count));
        return connection->received.size() <= WIRE_MESSAGE_MAX;
    }
    // Who only wanted to know whether there is a phone sends nothing.
    if (!connection->received.empty()) {
        answer(state, doors, *connection);
    }
    return false;
}

void serve(const ServerOptions& doors, ControlState* state) {
    fuse_session* const session = start_driver_session(&state->driver, doors.fuse_fd);
    std::list<Connection> connections;
    std::vector<pollfd> polls;
    // Who asks earlier waits: an answer says that the phone is whole.
    int door_fd = doors.placed_fd;
    for (;;) {
        polls.assign({{doors.fuse_fd, POLLIN, 0}, {door_fd, POLLIN, 0}});
        for (const Connection& connection : connections) {
            polls.push_back({connection.fd.get(), POLLIN, 0});
        }
        if (poll(polls.data(), polls.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw refusal_errno("the driver server cannot wait");
        }
        if (polls[0].revents != 0 && !serve_driver_request(session)) {
            return;
        }
        size_t i = 2;
        for (auto connection = connections.begin(); connection != connections.end(); ++i) {
            const bool stays = polls[i].revents == 0 || serve_connection(state, doors, &*connection);
            connection = stays ? std::next(connection) : connections.erase(connection);
        }
        if (polls[1].revents != 0 && door_fd == doors.listen_fd) {
            accept_connection(doors.listen_fd, &connections);
        } else if (polls[1].revents != 0) {
            door_fd = doors.listen_fd;
        }
    }
}

}  // namespace

UniqueFd listen_for_control(const std::string& socket_name) {
    sockaddr_un address;
    const unsigned length = fill_address(socket_name, &address);
    if (length == 0) {
        throw Refusal("the name of the phone is too long");
    }
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.valid()) {
        throw refusal_errno("no control socket");
    }
    if (bind(fd.get(), reinterpret_cast<sockaddr*>(&address), length) != 0) {
        if (errno == EADDRINUSE) {
            throw Refusal(
                "a phone of that name is running already: end it, or give this one another with --name");
        }
        throw refusal_errno("the control socket cannot be bound");
    }
    if (listen(fd.get(), static_cast<int>(CONNECTIONS_MAX)) != 0) {
        throw refusal_errno("the control socket cannot listen");
    }
    return fd;
}

void run_driver_server(const ServerOptions& options) {
    // A session of its own: Ctrl-C on the phone's terminal is not for the drivers.
    setsid();
    try {
        ControlState state;
        state.log_dir = options.log_dir;
        state.build_dir = options.build_dir;
        serve(options, &state);
    } catch (const std::exception& error) {
        print_refusal(error.what());
        _exit(STATUS_NO_PHONE);
    }
    _exit(0);
}

}  // namespace phone
