// The exception log for a phone whose liblog has none. It writes each entry into the ordinary log, under the
// entry's own tag, and nothing is uploaded. Whoever brings dmd to a phone puts the call of the phone's upload
// service here.
#include "platform/phone_log.h"

int __android_log_exception_write(const char* tag, int /*priority*/, const char* type, const char* text) {
    // Not with the priority asked for: it is the lowest, and a log may leave such lines out.
    return __android_log_print(ANDROID_LOG_ERROR, tag, "exception log: %s\t%s", type, text);
}
