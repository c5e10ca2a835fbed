// The phone's log library, as far as the daemon uses it. On Android these come from the platform's liblog;
// on a desk from desk_log.cpp.
#pragma once

extern "C" {

// Priority of every message that the daemon logs.
constexpr int ANDROID_LOG_ERROR = 6;

// Writes one message. Safe from any thread. Returns a positive number, or a negative one on failure.
int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Files an entry in the exception log: `type` says what `text` is. Safe from any thread. Returns a positive
// number, or a negative one on failure.
int __android_log_exception_write(const char* tag, int priority, const char* type, const char* text);
}
