// The desk stand-in of the phone's log library.
#include "platform/desk/log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/owned.h"
#include "platform/phone_log.h"
#include "platform/text.h"

namespace {

// Longest line, as on the phone, whose logger cuts an entry at about 4 KiB.
constexpr size_t LINE_SIZE = 4096;

constexpr char EXCEPTION_LOG[] = "/dev/log/exception";

DeskLogSink current_sink = nullptr;

}  // namespace

void desk_log_set_sink(DeskLogSink sink) {
    current_sink = sink;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    const int wanted = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (wanted < 0) {
        return -1;
    }
    if (current_sink != nullptr) {
        current_sink(priority, tag, text);
        return 1;
    }
    static const char letters[] = "??VDIWEF";
    const char letter = priority >= 0 && priority < 8 ? letters[priority] : '?';
    char line[LINE_SIZE + 64];
    size_t length = format_text(line, sizeof line - 1, "%c/%s: %s", letter, tag, text);
    if (length == 0 || line[length - 1] != '\n') {
        line[length++] = '\n';
    }
    return write(STDERR_FILENO, line, length) < 0 ? -1 : 1;
}

int __android_log_exception_write(const char* tag, int priority, const char* type, const char* text) {
    const UniqueFd log(open(EXCEPTION_LOG, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (!log.valid()) {
        return -1;
    }
    char line[LINE_SIZE];
    size_t length = format_text(line, sizeof line - 1, "%s\t%d\t%s\t%s", tag, priority, type, text);
    line[length++] = '\n';
    return write(log.get(), line, length) < 0 ? -1 : 1;
}
