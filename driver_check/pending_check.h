// What is tried with the errors of a client: what is readable when, and what a read returns.
#pragma once

#include "driver_check/bound_client.h"

// Takes a pending error only if the check drains. Forces a dump only if the check has a number for it.
void check_errors(const bound_client& client);
