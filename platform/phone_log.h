// The part of the phone's log library that the daemon uses. On a phone (DMD_ANDROID) it comes from the
// platform's header and liblog, on a desk from desk/log.cpp.
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
