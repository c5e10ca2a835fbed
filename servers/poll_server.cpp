// The poll thread: setting its clients up, the clock, and what their triggers say of the sampled states.
#include "servers/poll_server.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

#include "clients/dispatch.h"
#include "clients/dsm_device.h"
#include "clients/registry.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "servers/monitor.h"

namespace {

constexpr char OPERATION[] = "poll_server";

Mutex pclient_lock;
Condition pclient_cond;  // a record was added
pclient* pclient_list GUARDED_BY(pclient_lock) = nullptr;
int32_t pclient_count GUARDED_BY(pclient_lock) = 0;

pthread_t poll_thread;

// Sets one client up, if it has a poll section.
void sample_client(dmd_client* client) {
    constexpr char operation[] = "poll_client_init";
    const char* const cname = client->info->name;
    const setting_info* const setting = find_setting(cname, ALGO_POLL);
    if (setting == nullptr) {
        return;
    }
    LOG_M_AS(operation, "find client %s's config\n", cname);
    UniqueBlock<pclient> record = allocate<pclient>();
    if (record == nullptr) {
        LOG_M_AS(operation, "malloc poll %s failed\n", cname);
        return;
    }
    UniqueFd fd(bind_client_fd(cname));
    if (!fd.valid()) {
        LOG_M_AS(operation, "can't bind client %s's fd\n", cname);
        return;
    }
    const poll_setting& poll = setting->poll;
    record->dclient = client;
    record->fd = fd.release();
    // A negative period becomes a very long one: the client is in effect never sampled.
    record->sample_period =
        poll.sampling_period != 0 ? static_cast<uint32_t>(poll.sampling_period) : DEFAULT_SAMPLE_PERIOD;
    record->num_triggers = poll.num_triggers;
    record->triggers = poll.triggers;
    record->complete_end = poll.complete_end;
    describe_device(record.get(), *setting, pclient_get_device_info);
    pclient* const linked = record.release();
    {
        const MutexLock lock(pclient_lock);
        linked->next = pclient_list;
        pclient_list = linked;
        ++pclient_count;
        pclient_cond.broadcast();
    }
    LOG_M_AS(operation, "pclient %s init success, fd-%d sample period-%d triggers num-%d\n", cname,
             linked->fd, static_cast<int>(linked->sample_period), linked->num_triggers);
    log_triggers(operation, linked->triggers, linked->complete_end);
}

void wait_for_client() {
    const MutexLock lock(pclient_lock);
    while (pclient_count == 0) {
        LOG_M_AS(OPERATION, "dmd poll no client wait broadcast\n");
        pclient_cond.wait(pclient_lock);
        LOG_M_AS(OPERATION, "dmd poll recieve broadcast, num-%d\n", pclient_count);
    }
}

void sample(const pclient& record) {
    const char* const cname = record.dclient->info->name;
    const int state = poll_pclient_state(&record);
    LOG_M_AS(OPERATION, "poll %s's state %d\n", cname, state);
    const trigger_info* const trigger = find_trigger(record.triggers, record.complete_end, state);
    if (trigger == nullptr) {
        LOG_M_AS(OPERATION, "client %s's error (%d) ignored\n", cname, state);
        return;
    }
    LOG_M_AS(OPERATION, "client %s's error (%d) occured\n", cname, state);
    run_actions(OPERATION, *trigger, dmd_force_dump_error, "can get specific client");
}

// Samples the clients that are due. Their dumps may run under the lock, because only this thread takes it.
void sweep(uint32_t clock_tick) {
    const MutexLock lock(pclient_lock);
    for (const pclient* record = pclient_list; record != nullptr; record = record->next) {
        if (clock_tick % record->sample_period == 0) {
            sample(*record);
        }
    }
}

}  // namespace

int pclient_get_device_info(pclient* record, unsigned int request) {
    if (record == nullptr) {
        return -1;
    }
    return get_device_info(__FUNCTION__, "get client error failed", record->dclient, record->fd, request);
}

int poll_pclient_state(const pclient* record) {
    dsm_argument argument = {};
    const int result = dsm_request(record->fd, DSM_IOCTL_GET_STATE, &argument);
    if (result != 0) {
        LOG_M("poll client %s failed %d\n", record->dclient->info->name, result);
        return 0;
    }
    const int state = atoi(argument.text);
    LOG_D("poll client %s result %d", record->dclient->info->name, state);
    return state;
}

void poll_client_init() {
    const int count = get_client_count();
    for (int i = 0; i < count; ++i) {
        dmd_client* const client = get_client_by_index(i);
        if (client == nullptr) {
            LOG_M("dclient is NULL pointer\n");
            continue;
        }
        sample_client(client);
    }
}

void* poll_server(void* /*argument*/) {
    poll_client_init();
    descriptors_to_bind -= count_settings(ALGO_POLL);
    uint32_t clock_tick = 0;
    for (;;) {
        wait_for_client();
        LOG_D("enter sleep, clock tick %u\n", clock_tick);
        ++clock_tick;
        sleep(TICK_SECONDS);
        LOG_D("exit sleep, clock tick %u\n", clock_tick);
        sweep(clock_tick);
    }
}

int dmd_poll_server_init() {
    descriptors_to_bind += count_settings(ALGO_POLL);
    const int result = pthread_create(&poll_thread, nullptr, poll_server, nullptr);
    if (result != 0) {
        LOG_M("Error initializing dmd poll server\n");
    }
    return result;
}
