// Building and walking the registry.
#include "clients/registry.h"

#include <strings.h>

#include "clients/client_table.h"
#include "platform/log.h"
#include "platform/owned.h"

namespace {

Mutex client_list_mutex;
dmd_client* client_list_head GUARDED_BY(client_list_mutex) = nullptr;
int client_count GUARDED_BY(client_list_mutex) = 0;

// Binds one row and links its record. Returns the row's result: 0 when it is in the registry.
int client_init(const dmd_client_info& row) {
    if (row.init == nullptr) {
        LOG_M("can't find client init function\n");
        return -1;
    }
    UniqueBlock<dmd_client> client = allocate<dmd_client>();
    if (client == nullptr) {
        LOG_M("malloc client struct failed\n");
        return -1;
    }
    client->info = &row;
    client->type = row.type;
    client->buffer_size = row.buffer_size;
    client->init = row.init;
    client->release = row.release;
    for (uint32_t slot = 0; slot < row.op_count; ++slot) {
        client->dump[slot] = row.dump[slot];
        client->force_dump[slot] = row.force_dump[slot];
    }
    client->clear = row.clear;
    const int result = client->init(client.get());
    if (result != 0) {
        return result;
    }
    dmd_client* const linked = client.release();
    int index;
    {
        const MutexLock lock(client_list_mutex);
        index = linked->index = client_count;
        linked->next = client_list_head;
        client_list_head = linked;
        ++client_count;
    }
    LOG_D("dmd client %s init finish client index-%d client type-%d buff size-%d\n", row.name, index,
          static_cast<int>(row.type), static_cast<int>(row.buffer_size));
    return 0;
}

template <typename Matches>
dmd_client* find_client(Matches matches) {
    const MutexLock lock(client_list_mutex);
    dmd_client* client = client_list_head;
    while (client != nullptr && !matches(*client)) {
        client = client->next;
    }
    return client;
}

}  // namespace

int dmd_client_init() {
    int result = 0;
    for (const dmd_client_info& row : default_clients) {
        result = client_init(row);
    }
    LOG_M("default-client total: %d ret = %d\n", default_clients.count, result);
    return 0;
}

int get_client_count() {
    int count;
    {
        const MutexLock lock(client_list_mutex);
        count = client_count;
    }
    LOG_D("size is :%d\n", count);
    return count;
}

dmd_client* get_client_by_index(int index) {
    return find_client([index](const dmd_client& client) { return client.index == index; });
}

dmd_client* get_client_by_name(const char* name) {
    if (name == nullptr) {
        return nullptr;
    }
    return find_client([name](const dmd_client& client) {
        return strncasecmp(client.info->name, name, sizeof client.info->name) == 0;
    });
}
