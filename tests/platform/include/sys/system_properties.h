// What cutils/properties.h takes of the phone's C library.
#pragma once
#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
