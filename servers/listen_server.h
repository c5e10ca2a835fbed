// The listen server: waits for errors on the clients that have a listen section.
#pragma once

#include <sys/select.h>

#include <cstdint>

#include "clients/client.h"
#include "config/settings.h"

// One watched client. Made by the listen thread, which alone uses it; never freed.
struct lclient {
    lclient* next;
    dmd_client* dclient;
    int32_t fd;  // bound to the client, watched by select
    int32_t num_triggers;
    trigger_info* triggers;  // the section's own array
    int32_t complete_end;    // as in the section

    // A client can stay ready and hand nothing over: its driver is dead, or its trigger's actions do not read
    // it. It then rests, longer each time, so that the thread does not spin on it.
    unsigned int texts_read;  // the client's texts_read after the last pass that watched it
    int fruitless;            // times in a row that it was ready but handed nothing over
    int64_t rest_end_ms;      // by the monotonic clock; until then it is not watched
};

// Starts the listen thread, which then sets its clients up and serves them for the life of the process.
// Called once, after the registry and the settings stand. 0, or the error code of the thread's creation.
int dmd_listen_server_init();

// Entry of the listen thread; its argument is not used. Returns only when select fails.
void* listen_server(void* argument);

// Sets up every registered client that has a listen section and puts its descriptor into `watched`, which is
// emptied first. A client that cannot be set up is logged and left out.
void listen_client_init(fd_set* watched);

// Asks the driver for one of the client's names (a request of the DSM_IOCTL_GET_..._NAME kind) and stores it
// in the registry's record, under the lock of the clients' names. 0, what the driver answered when that is
// not 0, -22 for another request, or -1 for a null record.
int lclient_get_device_info(lclient* record, unsigned int request);

// The client's pending error number; 0, after a message, when the driver did not give it.
int lclient_get_error(const lclient* record);
