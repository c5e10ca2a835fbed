// The built-in table of clients.
#pragma once

#include "clients/client.h"

constexpr int CLIENT_TABLE_ROWS = 46;

// Every client that the daemon knows, in binding order.
extern const dmd_client_info default_clients[CLIENT_TABLE_ROWS];
