// The sensor hub's dump with its memory image.
#pragma once

#include "clients/client.h"

// How long the sensor hub takes to write its image.
constexpr unsigned int SENSORHUB_IMAGE_WAIT_SECONDS = 10;

// Reports the client's error text; on a debug build then makes the driver dump the sensor hub, waits 10
// seconds and saves the newest memory image as a compressed dump, all under the client's lock. Returns -1 on
// a null argument, no memory and a commercial build; the driver's result when it refused the dump; otherwise
// what reading the text that came with the dump returned, whether or not an image was found.
int sensorhub_dump_error(dmd_client* client, int error_no, const char* RT_switch);
