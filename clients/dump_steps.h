// The steps that the dump operations of clients share. Messages carry `operation`, the name of the dump
// operation.
#pragma once

#include "clients/client.h"
#include "output/error_info.h"
#include "platform/owned.h"

// A description of an error that is dumped now. Its names and test switch are empty.
dmd_error_info start_description(int error_no);

// Fills in the client's names and the first characters of the test switch. Needs no lock of the client.
void describe_client(dmd_error_info* info, const dmd_client* client, const char* RT_switch)
    EXCLUDES(client_names_lock);

// Describes a standalone dump of bytes that is made now. Such dumps are named by error number and time of
// day, so it waits for a second whose name is free: usually this one or the next.
dmd_error_info describe_standalone_dump(const dmd_client* client, int error_no, const char* RT_switch)
    EXCLUDES(client_names_lock);

// Checks the arguments and allocates the client's buffer: zero-filled, one byte more than the driver fills,
// so that it holds text. Null, after a message, when the dump cannot start.
UniqueBuffer start_dump(const char* operation, const dmd_client* client, const char* RT_switch);

// Reads the client's pending error text into the buffer of start_dump and completes the description. Returns
// the bytes read; 0 or less, after a message, when nothing was read and the description is as it was.
int read_error_text(const char* operation, dmd_client* client, char* buffer, const char* RT_switch,
                    dmd_error_info* info) REQUIRES(client->mutex);

// Makes the driver dump the client. 0, or the driver's refusal after a message.
int request_force_dump(const char* operation, dmd_client* client, int error_no) REQUIRES(client->mutex);
