// The phone's system properties. On a phone (DMD_ANDROID) they come from the platform's header and libcutils,
// on a desk from desk/properties.cpp.
#pragma once

#ifdef DMD_ANDROID
#include <cutils/properties.h>
#else
extern "C" {

// Size in bytes of a buffer for any property value, its terminator included.
constexpr int PROPERTY_VALUE_MAX = 92;

// Copies the value of `key` into `value` (PROPERTY_VALUE_MAX bytes), or `default_value` (may be null) when
// the property is not set. Returns the length of what it copied.
int property_get(const char* key, char* value, const char* default_value);

// Sets the property. Returns 0, or -1 on failure.
int property_set(const char* key, const char* value);
}
#endif
