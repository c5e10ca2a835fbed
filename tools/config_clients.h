// The clients that the daemon knows, and what the operations in their slots do.
#pragma once

#include <string>

#include "clients/client.h"
#include "tools/operation_names.h"
#include "tools/terminal.h"

namespace tools {

// The row of the client table with that name, in any case, or null.
const dmd_client_info* find_client(const std::string& name);

// "; did you mean CLIENT?" with the nearest client, or "" when none is near.
std::string did_you_mean_client(const std::string& name);

// A table of the clients and their slots, then the operations with further steps.
std::string format_clients(const Terminal& terminal);

// The table with its columns separated by tabs.
std::string format_clients_tsv();

// All of it as one JSON document, with a line end.
std::string format_clients_json();

}  // namespace tools
