// The poll server: samples the states of the clients that have a poll section, on a clock of 5 seconds.
#pragma once

#include <cstdint>

#include "clients/client.h"
#include "config/settings.h"

// One sampled client. Made by the poll thread, which alone uses it; never freed.
struct pclient {
    pclient* next;
    dmd_client* dclient;
    int32_t fd;              // bound to the client
    uint32_t sample_period;  // ticks of 5 seconds, at least 1
    int32_t num_triggers;
    trigger_info* triggers;  // the section's own array
    int32_t complete_end;    // as in the section
};

// Starts the poll thread, which then sets its clients up and samples them for the life of the process. Called
// once, after the registry and the settings stand. 0, or the error code of the thread's creation.
int dmd_poll_server_init();

// Entry of the poll thread; its argument is not used. Never returns.
void* poll_server(void* argument);

// Sets up every registered client that has a poll section. A client that cannot be set up is logged and left
// out.
void poll_client_init();

// Asks the driver for one of the client's names (a request of the DSM_IOCTL_GET_..._NAME kind) and stores it
// in the registry's record, under the lock of the clients' names. 0, what the driver answered when that is
// not 0, -22 for another request, or -1 for a null record.
int pclient_get_device_info(pclient* record, unsigned int request);

// The client's current state; 0, after a message, when the driver did not give it.
int poll_pclient_state(const pclient* record);
