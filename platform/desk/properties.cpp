// The desk stand-in of the phone's system properties: one file a property.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/owned.h"
#include "platform/properties.h"
#include "platform/text.h"

namespace {

constexpr char DIRECTORY[] = "/dev/__properties__";

// Longest property path; keys are short.
constexpr size_t PATH_SIZE = 256;

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    char path[PATH_SIZE];
    format_text(path, sizeof path, "%s/%s", DIRECTORY, key);
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t got = file.valid() ? read(file.get(), value, PROPERTY_VALUE_MAX - 1) : -1;
    if (got < 0) {
        return static_cast<int>(copy_text(value, PROPERTY_VALUE_MAX, default_value ? default_value : ""));
    }
    value[got] = '\0';
    if (got > 0 && value[got - 1] == '\n') {
        value[got - 1] = '\0';
    }
    return static_cast<int>(strlen(value));
}

int property_set(const char* key, const char* value) {
    if (strlen(value) >= PROPERTY_VALUE_MAX) {
        return -1;
    }
    char path[PATH_SIZE];
    char fresh[PATH_SIZE];
    format_text(path, sizeof path, "%s/%s", DIRECTORY, key);
    format_text(fresh, sizeof fresh, "%s/.%s.XXXXXX", DIRECTORY, key);
    UniqueFd file(mkostemp(fresh, O_CLOEXEC));
    const ssize_t length = static_cast<ssize_t>(strlen(value));
    if (file.valid() && write(file.get(), value, length) == length && file.reset() == 0 &&
        rename(fresh, path) == 0) {
        return 0;
    }
    unlink(fresh);
    return -1;
}
