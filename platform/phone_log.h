// The phone's log library, as far as the daemon uses it. A phone's build (DMD_ANDROID) takes the platform's
// own header and liblog; on a desk all of it is in desk/log.cpp.
#pragma once

#ifdef DMD_ANDROID
#include <android/log.h>
#endif

extern "C" {

#ifndef DMD_ANDROID
// Priority of every message that the daemon logs.
constexpr int ANDROID_LOG_ERROR = 6;

// Writes one message. Safe from any thread. Returns a positive number, or a negative one on failure.
int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
#endif

// Files an entry in the exception log: `type` says what `text` is. Safe from any thread. Returns a positive
// number, or a negative one on failure.
int __android_log_exception_write(const char* tag, int priority, const char* type, const char* text);
}
