// What the phone's property service refuses; the properties themselves are the daemon's stand-in.
#include "emulator/properties.h"

#include "emulator/refusal.h"
#include "platform/properties.h"

namespace phone {

namespace {

// Longest name and longest value in bytes that the phone's property service keeps.
constexpr size_t NAME_MAX_SIZE = 31;
constexpr size_t VALUE_MAX_SIZE = PROPERTY_VALUE_MAX - 1;
// In place of a value that is not set: no value has two lines.
constexpr char NOT_SET[] = "\n\n";

void check_name(const std::string& name) {
    const char* const allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    if (name.empty() || name.size() > NAME_MAX_SIZE || name[0] == '.' ||
        name.find_first_not_of(allowed) != std::string::npos) {
        throw Refusal("'" + name + "' is no name of a property: it has 1 to " +
                      std::to_string(NAME_MAX_SIZE) + " letters, digits, '.', '_' and '-'");
    }
}

}  // namespace

std::string read_property(const std::string& name) {
    check_name(name);
    char value[PROPERTY_VALUE_MAX];
    property_get(name.c_str(), value, NOT_SET);
    if (value == std::string(NOT_SET)) {
        throw Refusal("property " + name + " is not set");
    }
    return value;
}

void write_property(const std::string& name, const std::string& value) {
    check_name(name);
    if (value.size() > VALUE_MAX_SIZE || value.find('\n') != std::string::npos) {
        throw Refusal("the value of a property is one line of at most " + std::to_string(VALUE_MAX_SIZE) +
                      " bytes");
    }
    if (property_set(name.c_str(), value.c_str()) != 0) {
        throw refusal_errno("property " + name + " cannot be set");
    }
}

}  // namespace phone
