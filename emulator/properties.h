// The phone's system properties, of which a person or a test may set any but those that no phone would keep.
#pragma once

#include <string>

namespace phone {

// These work on the root of the calling process and throw Refusal.
std::string read_property(const std::string& name);
void write_property(const std::string& name, const std::string& value);

}  // namespace phone
