// The stub of the exception log: an entry is a line of the log, and what becomes of it is what the log says.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "platform/phone_log.h"

namespace {

int answer = 0;
char logged[200];

}  // namespace

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[150];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    snprintf(logged, sizeof logged, "%d %s %s", priority, tag, text);
    return answer;
}

int main() {
    for (const int result : {1, -1}) {
        answer = result;
        const int got = __android_log_exception_write("DMD-dsm_tp", 0, "command", "archive -i A -z zip");
        if (got != result ||
            strcmp(logged, "6 DMD-dsm_tp exception log: command\tarchive -i A -z zip") != 0) {
            printf("%d instead of %d, logged: %s\n", got, result, logged);
            return 1;
        }
    }
    return 0;
}
