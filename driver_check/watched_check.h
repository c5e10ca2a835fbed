// A check runs in a process of its own, because a driver may keep a call for ever, even from a signal.
#pragma once

#include <cstdio>

#include "clients/client.h"
#include "clients/dsm_device.h"

// The calls that a driver serves.
enum dsm_call {
    CALL_OPEN,
    CALL_BIND,
    CALL_STATE,
    CALL_FORCE,
    CALL_ERROR,
    CALL_DEVICE_NAME,
    CALL_MODULE_NAME,
    CALL_IC_NAME,
    CALL_SELECT,
    CALL_READ,
    CALL_READ_NOTHING,  // with nothing pending
    CALL_WAIT,
    CALL_CLOSE,
    CALL_COUNT
};

struct dsm_call_info {
    const char* name;
    unsigned int request;  // 0 where it is none
    int seconds;           // that it may take, apart from waiting as long as told to
    const char* harm;      // what dmd loses if it does not return
};

extern const dsm_call_info CALLS[CALL_COUNT];

// What a check has found so far. The checking process tells it to the watching one before each call.
struct check_findings {
    dsm_call call;      // about to be made
    int warnings;       // printed
    bool hung;          // in the call
    int open_errno;     // why the device cannot be opened; 0 if it can
    bool missing;       // the driver does not have the client
    bool bound;         // the client, as often as dmd binds it
    bool seen_pending;  // an error was pending
};

// A check under way, in its own process.
struct driver_check {
    const char* name;            // that begins each line
    const dmd_client_info* row;  // null where the check is not of a client
    bool drain;                  // read what is pending
    const char* force;           // the number of a forced dump, decimal; null for none
    int wait_seconds;            // how long to wait for an error; 0 for not at all
    int bound;                   // clients that could be bound one by one
    int watcher;                 // a pipe that takes the findings
    check_findings findings;
};

// Runs `run` in a process of its own until it is done or a call does not return; that is a warning then.
// Returns what it has found.
check_findings watch(const driver_check& check, void (*run)(driver_check* check));

// Tells the watching process which call comes next.
void announce(driver_check* check, dsm_call call);

// Prints a line about a deviation and counts it.
__attribute__((format(printf, 2, 3))) void warn(driver_check* check, const char* format, ...);
// Prints a line about something that is no deviation.
__attribute__((format(printf, 2, 3))) void note(const driver_check* check, const char* format, ...);
