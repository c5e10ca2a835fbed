// The listen thread: setting its clients up, waiting for their errors, and running what their triggers say.
#include "servers/listen_server.h"

#include <pthread.h>
#include <sys/select.h>

#include <algorithm>
#include <cstdlib>

#include "clients/dispatch.h"
#include "clients/dsm_device.h"
#include "clients/registry.h"
#include "platform/log.h"
#include "platform/monotonic_clock.h"
#include "platform/owned.h"
#include "servers/monitor.h"

namespace {

constexpr char OPERATION[] = "listen_server";

Mutex lclient_lock;
Condition lclient_cond;  // a record was added
lclient* lclient_list GUARDED_BY(lclient_lock) = nullptr;
int32_t lclient_count GUARDED_BY(lclient_lock) = 0;

pthread_t listen_thread;

// A client rests after so many fruitless passes in a row. One alone may be an error with an empty text.
constexpr int FRUITLESS_PASSES = 2;

// The first rest. Each further one in a row is twice as long, up to the longest. A client that is not ready
// for as long as that after a rest begins anew.
constexpr int64_t REST_MIN_MS = 1000;
constexpr int64_t REST_MAX_MS = 60000;

int64_t now_ms() {
    return monotonic_us() / 1000;
}

const char* client_name(const lclient& record) {
    return record.dclient->info->name;
}

// Sets one client up and adds its descriptor to the watched set.
void watch_client(dmd_client* client, fd_set* watched) {
    constexpr char operation[] = "listen_client_init";
    const char* const cname = client->info->name;
    const setting_info* const setting = find_setting(cname, ALGO_LISTEN);
    if (setting == nullptr) {
        LOG_M_AS(operation, "can't find client %s's config.\n", cname);
        return;
    }
    LOG_M_AS(operation, "find client %s's config.\n", cname);
    UniqueBlock<lclient> record = allocate<lclient>();
    if (record == nullptr) {
        LOG_M_AS(operation, "malloc listen %s failed\n", cname);
        return;
    }
    UniqueFd fd(bind_client_fd(cname));
    if (!fd.valid()) {
        LOG_M_AS(operation, "can't bind client %s's fd\n", cname);
        return;
    }
    if (fd.get() >= FD_SETSIZE) {
        LOG_M_AS(operation, "client %s's fd-%d does not fit the watched set\n", cname, fd.get());
        return;
    }
    record->dclient = client;
    record->fd = fd.release();
    record->num_triggers = setting->listen.num_triggers;
    record->triggers = setting->listen.triggers;
    record->complete_end = setting->listen.complete_end;
    describe_device(record.get(), *setting, lclient_get_device_info);
    lclient* const linked = record.release();
    {
        const MutexLock lock(lclient_lock);
        linked->next = lclient_list;
        lclient_list = linked;
        ++lclient_count;
        lclient_cond.broadcast();
    }
    LOG_M_AS(operation, "lclient %s init success, fd-%d triggers num-%d\n", cname, linked->fd,
             linked->num_triggers);
    log_triggers(operation, linked->triggers, linked->complete_end);
    FD_SET(linked->fd, watched);
}

lclient* find_lclient(int fd) {
    const MutexLock lock(lclient_lock);
    lclient* record = lclient_list;
    while (record != nullptr && record->fd != fd) {
        record = record->next;
    }
    return record;
}

void handle_error(const lclient& record) {
    const int error_no = lclient_get_error(&record);
    const trigger_info* const trigger = find_trigger(record.triggers, record.complete_end, error_no);
    if (trigger == nullptr) {
        LOG_M_AS(OPERATION, "%s has error (%d) ignored\n", client_name(record), error_no);
        dmd_clear_error(record.dclient, 0);
        return;
    }
    LOG_M_AS(OPERATION, "%s has error (%d) reported\n", client_name(record), error_no);
    run_actions(OPERATION, *trigger, dmd_dump_error, "can not get specific client");
}

// Removes resting clients from the set. Returns the milliseconds until the first rest is over, or -1 when no
// client rests.
int64_t leave_out_resting(fd_set* set) {
    const int64_t now = now_ms();
    int64_t shortest_ms = -1;
    const MutexLock lock(lclient_lock);
    for (const lclient* record = lclient_list; record != nullptr; record = record->next) {
        const int64_t left_ms = record->rest_end_ms - now;
        // The rest is over early when somebody has read the text meanwhile.
        if (left_ms > 0 && record->dclient->texts_read == record->texts_read) {
            FD_CLR(record->fd, set);
            shortest_ms = shortest_ms < 0 ? left_ms : std::min(shortest_ms, left_ms);
        }
    }
    return shortest_ms;
}

// The client was ready but has handed nothing over.
void note_fruitless_pass(lclient* record, int64_t now) {
    const bool in_a_row = now - record->rest_end_ms < REST_MAX_MS;
    record->fruitless = in_a_row ? record->fruitless + 1 : 1;
    record->rest_end_ms = now;
    if (record->fruitless >= FRUITLESS_PASSES) {
        const int doublings = std::min(record->fruitless - FRUITLESS_PASSES, 6);
        const int64_t rest_ms = std::min(REST_MIN_MS << doublings, REST_MAX_MS);
        // The rest is cut to end at a whole multiple of its length: many clients then wake the thread once.
        record->rest_end_ms = (now / rest_ms + 1) * rest_ms;
    }
}

// Looks back at a pass. A client that was not ready proves nothing: a broken one may bring an error only now
// and then.
void note_pass(fd_set watched, fd_set ready) {
    const int64_t now = now_ms();
    const MutexLock lock(lclient_lock);
    for (lclient* record = lclient_list; record != nullptr; record = record->next) {
        if (!FD_ISSET(record->fd, &watched)) {
            continue;
        }
        const unsigned int texts_read = record->dclient->texts_read;
        if (texts_read != record->texts_read) {
            record->texts_read = texts_read;
            record->fruitless = 0;
            record->rest_end_ms = now;
        } else if (FD_ISSET(record->fd, &ready)) {
            note_fruitless_pass(record, now);
        }
    }
}

void wait_for_client() {
    const MutexLock lock(lclient_lock);
    while (lclient_count == 0) {
        LOG_M_AS(OPERATION, "dmd listen no client wait broadcast\n");
        lclient_cond.wait(lclient_lock);
        LOG_M_AS(OPERATION, "dmd listen recieve broadcast, num-%d\n", lclient_count);
    }
}

}  // namespace

int lclient_get_device_info(lclient* record, unsigned int request) {
    if (record == nullptr) {
        return -1;
    }
    return get_device_info(__FUNCTION__, "get client info failed", record->dclient, record->fd, request);
}

int lclient_get_error(const lclient* record) {
    dsm_argument argument = {};
    const int result = dsm_request(record->fd, DSM_IOCTL_GET_ERROR, &argument);
    if (result != 0) {
        LOG_M("%s get client error failed %d\n", client_name(*record), result);
        return 0;
    }
    const int error_no = atoi(argument.text);
    LOG_D("%s client error is %d", client_name(*record), error_no);
    return error_no;
}

void listen_client_init(fd_set* watched) {
    FD_ZERO(watched);
    const int count = get_client_count();
    for (int i = 0; i < count; ++i) {
        dmd_client* const client = get_client_by_index(i);
        if (client == nullptr) {
            LOG_M("dclient is NULL pointer.\n");
            continue;
        }
        watch_client(client, watched);
    }
}

void* listen_server(void* /*argument*/) {
    fd_set watched;
    listen_client_init(&watched);
    descriptors_to_bind -= count_settings(ALGO_LISTEN);
    for (;;) {
        wait_for_client();
        LOG_M("Enter select\n");
        fd_set waited_for = watched;
        const int64_t rest_ms = leave_out_resting(&waited_for);
        timeval limit = {static_cast<time_t>(rest_ms / 1000),
                         static_cast<suseconds_t>(rest_ms % 1000 * 1000)};
        fd_set ready = waited_for;
        const int count = select(FD_SETSIZE, &ready, nullptr, nullptr, rest_ms < 0 ? nullptr : &limit);
        if (count < 0 || (count == 0 && rest_ms < 0)) {
            LOG_M("Dmd listen server select error");
            return nullptr;
        }
        for (int fd = 0; fd < FD_SETSIZE; ++fd) {
            if (!FD_ISSET(fd, &ready)) {
                continue;
            }
            const lclient* const record = find_lclient(fd);
            if (record == nullptr) {
                LOG_M("can't find fd %d's listen client\n", fd);
                FD_CLR(fd, &watched);
                continue;
            }
            handle_error(*record);
        }
        note_pass(waited_for, ready);
    }
}

int dmd_listen_server_init() {
    descriptors_to_bind += count_settings(ALGO_LISTEN);
    const int result = pthread_create(&listen_thread, nullptr, listen_server, nullptr);
    if (result != 0) {
        LOG_M("Error initializing dmd listen server\n");
    }
    return result;
}
