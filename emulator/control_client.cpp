// The asking end of a phone's control socket. The socket is an abstract one: nothing of it is on any disk,
// and it is gone with the process that serves it.
#include "emulator/control_client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "emulator/control_wire.h"
#include "platform/owned.h"

namespace phone {

namespace {

// Seconds that a phone may take over one piece of an exchange; it answers at once unless it is stuck.
constexpr time_t ANSWER_TIMEOUT_S = 10;

bool send_all(int fd, const std::string& data) {
    size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t count = send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        sent += static_cast<size_t>(count);
    }
    return true;
}

// Receives an answer to its end.
bool receive_answer(int fd, Words* words) {
    std::string data;
    char piece[65536];
    ssize_t count = 0;
    while ((count = recv(fd, piece, sizeof(piece), 0)) != 0) {
        if (count > 0) {
            data.append(piece, static_cast<size_t>(count));
        } else if (errno != EINTR) {
            return false;
        }
    }
    if (data.empty()) {
        errno = ECONNRESET;
        return false;
    }
    if (!decode_words(data, words) || words->size() != 2) {
        errno = EPROTO;
        return false;
    }
    return true;
}

}  // namespace

std::string socket_of_phone(const std::string& name) {
    return "dmd-phone-" + std::to_string(geteuid()) + "-" + name;
}

unsigned fill_address(const std::string& socket_name, void* address) {
    auto* out = static_cast<sockaddr_un*>(address);
    memset(out, 0, sizeof(*out));
    out->sun_family = AF_UNIX;
    // The first byte stays zero: that makes the name an abstract one.
    if (socket_name.empty() || socket_name.size() > sizeof(out->sun_path) - 1) {
        return 0;
    }
    memcpy(out->sun_path + 1, socket_name.data(), socket_name.size());
    return static_cast<unsigned>(offsetof(sockaddr_un, sun_path) + 1 + socket_name.size());
}

UniqueFd connect_to_phone(const std::string& socket_name, std::string* why) {
    sockaddr_un address;
    const unsigned length = fill_address(socket_name, &address);
    if (length == 0) {
        *why = "'" + socket_name + "' is too long for the name of a phone";
        return {};
    }
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval timeout = {ANSWER_TIMEOUT_S, 0};
    if (!fd.valid() || setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0 ||
        setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)) != 0) {
        *why = std::string("no socket to ask a phone with: ") + strerror(errno);
        return {};
    }
    if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), length) != 0) {
        *why = "no phone answers at '" + socket_name +
               "' (boot one with 'phone boot', or say which one with --name): " + strerror(errno);
        return {};
    }
    ucred peer = {};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != geteuid()) {
        *why = "what answers at '" + socket_name + "' belongs to another user";
        return {};
    }
    return fd;
}

bool request(const std::string& socket_name, const std::vector<std::string>& words, std::string* answer) {
    std::string name = socket_name;
    if (name.empty()) {
        const char* inside = getenv(CONTROL_VARIABLE);
        if (inside == nullptr) {
            *answer = std::string("this process runs in no phone: ") + CONTROL_VARIABLE + " is not set";
            return false;
        }
        name = inside;
    }
    const UniqueFd fd = connect_to_phone(name, answer);
    if (!fd.valid()) {
        return false;
    }
    const std::string message = encode_words(words);
    if (message.size() > WIRE_MESSAGE_MAX) {
        *answer = "a request holds at most " + std::to_string(WIRE_MESSAGE_MAX) + " bytes";
        return false;
    }
    Words reply;
    // A phone that refuses a request early may close before all of it is sent, and its answer says why.
    const bool sent = send_all(fd.get(), message) && shutdown(fd.get(), SHUT_WR) == 0;
    if (!receive_answer(fd.get(), &reply)) {
        *answer = std::string(sent ? "the phone gave no answer: " : "the phone took no request: ") +
                  strerror(errno);
        return false;
    }
    *answer = reply[1];
    return reply[0] == WIRE_DONE;
}

}  // namespace phone
