// The error numbers that a commercial build has recorded, for its once-a-day rule. Never freed; lost when the
// daemon stops.
#pragma once

#include <cstdint>

#include "output/error_info.h"
#include "output/output_lock.h"

struct dmd_error_history_info_node {
    int32_t error_no;
    int32_t time;  // seconds since the epoch of the last report let through to the commercial record
    dmd_error_history_info_node* next;
};

// The node of the report's error number, or null.
dmd_error_history_info_node* find_error_history_info(const dmd_error_info* info) REQUIRES(output_lock);

// Adds a node with the report's error number and time. 0, or -22 after a message when there is no memory.
int register_error_history_info(const dmd_error_info* info) REQUIRES(output_lock);

// Sets the time of the error number's node to the report's. Always 0; a missing node is logged.
int update_error_history_info(const dmd_error_info* info) REQUIRES(output_lock);
