// Talking to a running phone: what the phone command and the tests use to play the drivers' part.
#pragma once

#include <string>
#include <vector>

namespace phone {

// Environment variable that names the phone's control socket to every process inside it.
constexpr char CONTROL_VARIABLE[] = "PHONE_CONTROL";

// Sends one request (a word list; words may hold any bytes) to the phone whose control socket is `socket_name`
// (empty: the one this process runs in) and waits for the answer. Returns true when the phone did it; *answer
// is what it says, or one line that says why not.
bool request(const std::string& socket_name, const std::vector<std::string>& words, std::string* answer);

}  // namespace phone
