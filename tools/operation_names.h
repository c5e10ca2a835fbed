// The names of the operations behind the slots of the client table, and what they do.
#pragma once

#include "clients/client.h"

namespace tools {

struct OperationName {
    client_dump_operation operation;
    const char* name;
    const char* does;
    bool takes_error;  // reads the client's error out of the driver, when it sits in a dump slot
};

// The entry of an operation. One that the table lacks has "?" for a name.
const OperationName& name_operation(client_dump_operation operation);

}  // namespace tools
