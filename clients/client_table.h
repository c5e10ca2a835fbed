// The built-in table of clients.
#pragma once

#include "clients/client.h"

// The rows of a table, which say themselves how many they are.
struct dmd_client_table {
    const dmd_client_info* rows;
    int count;

    const dmd_client_info* begin() const { return rows; }
    const dmd_client_info* end() const { return rows + count; }
    const dmd_client_info& operator[](int row) const { return rows[row]; }
};

// Every client that the daemon knows, in binding order.
extern const dmd_client_table default_clients;
