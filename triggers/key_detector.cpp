// The key thread: finding the key devices, collecting their events, and running what a combination stands
// for.
#include "triggers/key_detector.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "daemon/product_version.h"
#include "platform/log.h"
#include "platform/monotonic_clock.h"
#include "platform/owned.h"
#include "platform/text.h"

namespace {

constexpr char INPUT_DIR[] = "/dev/input";
constexpr int KEY_DEVICES_MAX = 8;
// Bytes of each bit array that a device is asked for.
constexpr size_t BITS_SIZE = 124;
// Longest pause between two events of one sequence.
constexpr int32_t MAX_PAUSE_MS = 280;
// A device is closed after so many failed reads in a row: it would stay ready and keep the thread busy.
constexpr int FAILED_READS_MAX = 16;

static_assert(sizeof(input_event) == 2 * sizeof(long) + 8,
              "events are as wide as the kernel's: 16 bytes on a phone");
static_assert(EVIOCGBIT(0, BITS_SIZE) == 0x807c4520 && EVIOCGBIT(EV_KEY, BITS_SIZE) == 0x807c4521,
              "the request codes are the kernel's");

struct key_step {
    uint16_t code;
    uint16_t value;
};

// A combination, and the force dump that it asks for.
struct key_combination {
    int combination_key;
    key_step steps[KEY_SEQUENCE_LENGTH];
    int command;
    const char* client_name;
    int slot;
};

constexpr uint16_t UP = KEY_VOLUMEUP;
constexpr uint16_t DOWN = KEY_VOLUMEDOWN;

constexpr key_combination combinations[] = {
    {3, {{UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}, {UP, 1}, {UP, 0}}, 2, "dsm_lcd", 1},
    {2, {{UP, 1}, {UP, 0}, {UP, 1}, {UP, 0}, {DOWN, 1}, {DOWN, 0}}, 3, "dsm_tp", 2},
    {9, {{DOWN, 1}, {UP, 1}, {UP, 0}, {UP, 1}, {UP, 0}, {DOWN, 0}}, 1, "dsm_tp", 1},
};
constexpr int KEY_ERROR_NO = 20005;
constexpr int NO_COMMAND = 0;

// The watched devices; used by the start operation and then by the key thread alone.
pollfd* key_device_fds = nullptr;  // room for KEY_DEVICES_MAX
int key_device_count = 0;
int failed_reads[KEY_DEVICES_MAX] = {};  // in a row, of each device

pthread_t key_thread;

bool has_bit(const unsigned long* bits, unsigned int bit) {
    constexpr unsigned int word = sizeof(unsigned long) * CHAR_BIT;
    return (bits[bit / word] >> (bit % word) & 1) != 0;
}

// Reads one event from a device. False when that failed, after a message, or when the event does not matter.
bool read_key(int index, key_entry* key) {
    constexpr char operation[] = "dmd_key_ev_get";
    input_event event = {};
    if (read(key_device_fds[index].fd, &event, sizeof event) != static_cast<ssize_t>(sizeof event)) {
        LOG_M_AS(operation, "read event error!\n");
        ++failed_reads[index];
        return false;
    }
    failed_reads[index] = 0;
    if (event.type != EV_KEY || event.code < KEY_VOLUMEDOWN || event.code > KEY_POWER) {
        return false;
    }
    const uint32_t time = static_cast<uint32_t>(dmd_key_time_ms());
    LOG_M_AS(operation, "code:%d, time:%d ms value:%d\n", event.code, static_cast<int>(time), event.value);
    // 0 would mark a free entry, so that one millisecond in 49 days counts as the next.
    *key = {event.code, std::max(time, 1U), static_cast<uint16_t>(event.value)};
    return true;
}

void drop_device(int index) {
    close(key_device_fds[index].fd);
    std::copy(key_device_fds + index + 1, key_device_fds + key_device_count, key_device_fds + index);
    std::copy(failed_reads + index + 1, failed_reads + key_device_count, failed_reads + index);
    --key_device_count;
}

void free_entries(int from) REQUIRES(key_sequence_mutex) {
    std::for_each(key_sequence + from, std::end(key_sequence), [](key_entry& entry) { entry.time = 0; });
}

void enter_key(const key_entry& key) REQUIRES(key_sequence_mutex) {
    key_entry* const free_entry = std::find_if(std::begin(key_sequence), std::end(key_sequence),
                                               [](const key_entry& entry) { return entry.time == 0; });
    if (free_entry == std::end(key_sequence)) {
        return;
    }
    *free_entry = key;
    if (free_entry == key_sequence) {
        return;
    }
    if (static_cast<int32_t>(key.time - free_entry[-1].time) > MAX_PAUSE_MS) {
        key_sequence[0] = key;
        free_entries(1);
        return;
    }
    if (free_entry + 1 == std::end(key_sequence)) {
        dmd_key_dispatch();
    }
}

// The combination that stands in the sequence, or null.
const key_combination* find_combination() REQUIRES(key_sequence_mutex) {
    for (const key_combination& combination : combinations) {
        if (std::equal(std::begin(key_sequence), std::end(key_sequence), combination.steps,
                       [](const key_entry& entry, const key_step& step) {
                           return entry.code == step.code && entry.value == step.value;
                       })) {
            return &combination;
        }
    }
    return nullptr;
}

}  // namespace

Mutex key_sequence_mutex;
key_entry key_sequence[KEY_SEQUENCE_LENGTH] = {};

uint64_t dmd_key_time_ms() {
    return static_cast<uint64_t>(monotonic_us()) / 1000;
}

bool dmd_is_key_device(int fd) {
    constexpr size_t words = (BITS_SIZE + sizeof(unsigned long) - 1) / sizeof(unsigned long);
    unsigned long types[words] = {};
    unsigned long keys[words] = {};
    // A kernel answers with the length that it copied; only a negative result is a failure.
    if (ioctl(fd, EVIOCGBIT(0, BITS_SIZE), types) < 0 || ioctl(fd, EVIOCGBIT(EV_KEY, BITS_SIZE), keys) < 0) {
        LOG_M("Can't send ioctl to the fd.");
        return false;
    }
    if (!has_bit(types, EV_KEY) || (!has_bit(keys, KEY_VOLUMEDOWN) && !has_bit(keys, KEY_VOLUMEUP))) {
        return false;
    }
    LOG_M("key event fd found.\n");
    return true;
}

int dmd_get_key_device() {
    const UniqueDir directory(opendir(INPUT_DIR));
    if (directory == nullptr) {
        LOG_M("can not open the event dir!");
        return 0;
    }
    while (const dirent* const entry = readdir(directory.get())) {
        const char* const name = entry->d_name;
        if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) {
            continue;
        }
        char path[sizeof INPUT_DIR + sizeof entry->d_name];
        format_text(path, sizeof path, "%s/%s", INPUT_DIR, name);
        // Neither open nor read blocks, whatever lies there.
        UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        if (!fd.valid() || !dmd_is_key_device(fd.get())) {
            continue;
        }
        if (key_device_count == KEY_DEVICES_MAX) {
            LOG_M("there are %d key devices already, %s is not watched\n", KEY_DEVICES_MAX, name);
            continue;
        }
        LOG_M("it's a key device, the input device is:%s\n", name);
        failed_reads[key_device_count] = 0;
        key_device_fds[key_device_count++] = {fd.release(), POLLIN, 0};
    }
    return key_device_count;
}

void dmd_key_command_func(int combination_key) {
    LOG_M("combination_key is %d.\n", combination_key);
    const auto* const row = std::find_if(std::begin(combinations), std::end(combinations),
                                         [combination_key](const key_combination& combination) {
                                             return combination.combination_key == combination_key;
                                         });
    const bool found = row != std::end(combinations);
    LOG_M("command is %d.\n", found ? row->command : NO_COMMAND);
    if (!found) {
        LOG_M("ignored unknown key command.\n");
        return;
    }
    dmd_client* const client = get_client_by_name(row->client_name);
    if (client == nullptr) {
        LOG_M("%s is not found in dmd client list.\n", row->client_name);
        return;
    }
    dmd_force_dump_error(client, KEY_ERROR_NO, row->slot, "on");
}

void dmd_key_dispatch() {
    for (int i = 0; i < KEY_SEQUENCE_LENGTH; ++i) {
        const key_entry& entry = key_sequence[i];
        LOG_M("key_sequence[%d]:, code:%d, time:%d,value:%d\n", i, entry.code, static_cast<int>(entry.time),
              entry.value);
    }
    const key_combination* const found = find_combination();
    if (found != nullptr) {
        LOG_M("dmd_key_dispatch combination_key:%d\n", found->combination_key);
        dmd_key_command_func(found->combination_key);
    } else {
        LOG_M("unknown combination_key!!\n");
    }
    free_entries(0);
}

int dmd_key_ev_get() {
    if (poll(key_device_fds, static_cast<nfds_t>(key_device_count), -1) < 0) {
        LOG_M("poll err !\n");
        return 0;
    }
    key_entry candidate = {};
    bool taken = false;
    for (int i = 0; i < key_device_count; ++i) {
        const short returned = std::exchange(key_device_fds[i].revents, short{0});
        if ((returned & POLLIN) != 0) {
            taken |= read_key(i, &candidate);
        }
        // It would stay ready for ever.
        if ((returned & ~POLLIN) != 0 || failed_reads[i] == FAILED_READS_MAX) {
            drop_device(i--);
            LOG_M("a key device is gone, %d left\n", key_device_count);
        }
    }
    if (!taken) {
        return 0;
    }
    const MutexLock lock(key_sequence_mutex);
    enter_key(candidate);
    return 1;
}

void* dmd_key_event_detect_thread(void* /*argument*/) {
    LOG_M("dmd_key_event_detect_thread start!\n");
    for (;;) {
        dmd_key_ev_get();
    }
}

int dmd_key_detect_sever_init() {
    if (identify_product_version() == 1) {
        return 0;
    }
    key_device_count = 0;
    if (key_device_fds == nullptr) {
        key_device_fds = static_cast<pollfd*>(calloc(KEY_DEVICES_MAX, sizeof(pollfd)));
    }
    if (key_device_fds == nullptr) {
        LOG_M("out of memory\n");
        return -1;
    }
    {
        const MutexLock lock(key_sequence_mutex);
        std::fill(std::begin(key_sequence), std::end(key_sequence), key_entry{});
    }
    if (dmd_get_key_device() == 0) {
        LOG_M("no any input device found!\n");
        return -1;
    }
    const int result = pthread_create(&key_thread, nullptr, dmd_key_event_detect_thread, nullptr);
    if (result != 0) {
        LOG_M("Unable to create pthread to process key event\n");
        while (key_device_count > 0) {
            drop_device(0);
        }
    }
    return result;
}
