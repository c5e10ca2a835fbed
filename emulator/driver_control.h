// What a test or a person can tell the driver server of a phone.
#pragma once

#include <string>

#include "emulator/control_wire.h"
#include "emulator/driver.h"

namespace phone {

// What the requests work on.
struct ControlState {
    Driver driver;
    std::string log_dir;    // where the desk sees the reports; empty when only the phone has them
    std::string build_dir;  // the folder of the desk that the phone shows at BUILD_DIR
    bool die = false;       // the server is to end at once
};

// Does one request. Returns what it says; throws Refusal with a line that says why not.
std::string control(ControlState* state, const Words& words);

}  // namespace phone
