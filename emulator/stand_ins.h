// Stand-ins for the phone's own commands, as far as the daemon runs them.
#pragma once

namespace phone {

struct StandIn {
    const char* name;
    const char* body;  // shell lines that print something of the command's shape
};

// Ends with a row without a name. Each command first notes how it was called in /data/commands.log.
extern const StandIn STAND_INS[];

// Makes them in /system/bin of the calling process's root. Throws Refusal.
void make_stand_ins();

}  // namespace phone
