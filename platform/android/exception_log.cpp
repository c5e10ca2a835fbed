// The exception log of a phone whose liblog has none. Nothing uploads what it is told until the integrator
// puts the call of the phone's own upload service here; so far an entry is a line of the ordinary log, under
// its own tag.
#include "platform/phone_log.h"

int __android_log_exception_write(const char* tag, int /*priority*/, const char* type, const char* text) {
    // The priority asked for is the lowest, which a log may leave out.
    return __android_log_print(ANDROID_LOG_ERROR, tag, "exception log: %s\t%s", type, text);
}
