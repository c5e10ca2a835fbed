// What an application of the phone can ask the daemon for.
#pragma once

#include <cstdint>
#include <string>

namespace phone {

// Sends the daemon of the calling process's root a request for a dump, and waits for nobody. Which clients
// there are is for the daemon to say. Throws Refusal.
void send_command(const std::string& client, bool test_switch, int32_t number);

}  // namespace phone
