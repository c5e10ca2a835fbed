// What is tried with a driver: the device, and each client that it has.
#pragma once

#include "driver_check/watched_check.h"

// Whether dmd has a client of that name.
bool is_client(const char* name);

// Opens the device, and binds a name that no client has.
void check_device(driver_check* check);

// Tries the requests of a client, which names bind it, and its errors.
void check_client(driver_check* check);

// Binds a descriptor of every client and holds them, as dmd does. There should be as many as were there one
// at a time.
void check_all_together(driver_check* check);
