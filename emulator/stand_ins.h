// Stand-ins for the phone's own commands, as far as the daemon runs them.
#pragma once

namespace phone {

// Makes them in /system/bin of the calling process's root. Each first notes how it was called in
// /data/commands.log. Throws Refusal.
void make_stand_ins();

}  // namespace phone
