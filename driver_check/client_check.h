// What is tried with a driver: the names that it does not have, and each client that it has.
#pragma once

#include "driver_check/watched_check.h"

// Binds names that no client has.
void check_unknown_names(driver_check* check);

// Tries the requests of a client, what is readable when, and what a read returns. Takes a pending error only
// if the check drains, and forces a dump only if the check has a number for it.
void check_client(driver_check* check);
