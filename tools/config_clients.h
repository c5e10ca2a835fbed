// The clients that the daemon knows, and what the operations in their slots do.
#pragma once

#include <string>
#include <vector>

#include "clients/client.h"
#include "tools/operation_names.h"
#include "tools/terminal.h"

namespace tools {

// The row of the client table with that name, in any case, or null.
const dmd_client_info* find_client(const std::string& name);

std::vector<std::string> client_names();

// A table of the clients and their slots, then the operations with further steps.
std::string format_clients(const Terminal& terminal);

// The table with its columns separated by tabs.
std::string format_clients_tsv();

// All of it as one JSON document, with a line end.
std::string format_clients_json();

}  // namespace tools
