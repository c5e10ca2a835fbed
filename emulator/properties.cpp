// Reading and replacing the files of properties.
#include "emulator/properties.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "emulator/refusal.h"
#include "platform/owned.h"

namespace phone {

namespace {

// Longest name in bytes that the phone's property service keeps.
constexpr size_t PROPERTY_NAME_MAX = 31;

std::string path_of(const std::string& name) {
    const char* const allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    if (name.empty() || name.size() > PROPERTY_NAME_MAX || name[0] == '.' ||
        name.find_first_not_of(allowed) != std::string::npos) {
        throw Refusal("'" + name + "' is no name of a property: it has 1 to " +
                      std::to_string(PROPERTY_NAME_MAX) + " letters, digits, '.', '_' and '-'");
    }
    return "/dev/__properties__/" + name;
}

}  // namespace

std::string read_property(const std::string& name) {
    const std::string path = path_of(name);
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        throw Refusal("property " + name + " is not set");
    }
    char value[PROPERTY_MAX + 1];
    const ssize_t count = read(fd.get(), value, sizeof(value));
    if (count < 0) {
        throw refusal_errno("property " + name + " cannot be read");
    }
    std::string out(value, static_cast<size_t>(count));
    if (!out.empty() && out.back() == '\n') {
        out.pop_back();
    }
    return out.substr(0, PROPERTY_MAX);
}

void write_property(const std::string& name, const std::string& value) {
    const std::string path = path_of(name);
    if (value.size() > PROPERTY_MAX || value.find('\n') != std::string::npos) {
        throw Refusal("the value of a property is one line of at most " + std::to_string(PROPERTY_MAX) +
                      " bytes");
    }
    // A name that no property can have, in the same folder: readers see the old value or the new one.
    const std::string fresh = "/dev/__properties__/.phone-" + name;
    const std::string line = value + "\n";
    const UniqueFd fd(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd.valid() || write(fd.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
        rename(fresh.c_str(), path.c_str()) != 0) {
        throw refusal_errno("property " + name + " cannot be set");
    }
}

}  // namespace phone
