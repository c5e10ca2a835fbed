// What happens with one error, or one state, of a client.
#pragma once

#include <cstdint>
#include <string>

#include "clients/client.h"
#include "tools/config_check.h"
#include "tools/terminal.h"

namespace tools {

// Step by step: what the listen section of the client does with an error of that number, and what its poll
// section, if it has one, does with a state of that number.
std::string explain_number(const Terminal& terminal, const CheckedConfig& config,
                           const dmd_client_info& client, int32_t number);

}  // namespace tools
