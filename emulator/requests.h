// The commands that ask a running phone for something: to play a driver, an application or somebody's
// fingers, and say what became of it.
#pragma once

#include <string>

#include "emulator/command_line.h"
#include "emulator/control_wire.h"

namespace phone {

// The phone called so when the command line names none.
constexpr char DEFAULT_NAME[] = "phone";

// The control socket of the phone that the command line means.
std::string socket_name(const Choices& choices);

// Sends that phone a request. Returns its answer, or throws it as a Refusal.
std::string ask(const Choices& choices, const Words& words);

// What the commands of these names do. Each returns the exit status, and throws Refusal.
int report(const Choices& choices);
int set_state(const Choices& choices);
int command(const Choices& choices);
int press_keys(const Choices& choices);

}  // namespace phone
