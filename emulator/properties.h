// The phone's system properties: one file each in /dev/__properties__.
#pragma once

#include <cstddef>
#include <string>

namespace phone {

// Longest value in bytes that the phone's property service keeps.
constexpr size_t PROPERTY_MAX = 91;

// These work on the root of the calling process and throw Refusal.
std::string read_property(const std::string& name);
void write_property(const std::string& name, const std::string& value);

}  // namespace phone
