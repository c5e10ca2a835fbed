// How a person says what the fingers on the phone's keys do.
#pragma once

#include <string>
#include <vector>

#include "emulator/control_wire.h"

namespace phone {

constexpr char KEY_WORD_FORMS[] =
    "up, down or power for a tap; followed by + pressed, - released, = repeated";

// The control requests that do what the words say, in order. Throws Refusal when a word says nothing.
std::vector<Words> key_requests(const std::vector<std::string>& words);

}  // namespace phone
