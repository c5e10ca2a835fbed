// Talking to a running phone: what the phone command and the tests use to play the drivers' part.
#pragma once

#include <string>
#include <vector>

#include "platform/owned.h"

namespace phone {

// Environment variable that names the phone's control socket to every process inside it.
constexpr char CONTROL_VARIABLE[] = "PHONE_CONTROL";

// Sends one request (a word list; words may hold any bytes) to the phone whose control socket is
// `socket_name` (empty: the one this process runs in) and waits for the answer. Returns true when the phone
// did it; *answer is what it says, or one line that says why not.
bool request(const std::string& socket_name, const std::vector<std::string>& words, std::string* answer);

// The control socket of the phone that the calling user named `name`.
std::string socket_of_phone(const std::string& name);

// Connects to a phone. Returns the socket, or none with the reason in *why. The peer of that socket
// (SO_PEERCRED) is the phone's first process.
UniqueFd connect_to_phone(const std::string& socket_name, std::string* why);

// Fills `address` (a sockaddr_un) for a socket name; returns its length in bytes, 0 when the name is too
// long.
unsigned fill_address(const std::string& socket_name, void* address);

}  // namespace phone
