// The memory images that the phone's hardware leaves in /data when it is dumped.
#pragma once

#include <string>

namespace phone {

// Writes `image` as rdr.bin into a folder of its own in /data/ruvo_logs/memorydump. Throws Refusal.
void write_memory_image(const std::string& image);

}  // namespace phone
