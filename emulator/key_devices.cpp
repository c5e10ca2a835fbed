// Keys, queues and answers of the input devices.
#include "emulator/key_devices.h"

#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iterator>

namespace phone {

namespace {

constexpr size_t EVENT_SIZE = sizeof(input_event);

// The axes of a touch panel that tells its fingers apart.
constexpr unsigned TOUCH_AXES[] = {ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID};

// The bits that a device has for each type of event; row 0 has those of the types themselves.
constexpr struct {
    unsigned type;
    size_t bits;
} BIT_COUNTS[] = {
    {0, EV_CNT},       {EV_KEY, KEY_CNT}, {EV_REL, REL_CNT}, {EV_ABS, ABS_CNT}, {EV_MSC, MSC_CNT},
    {EV_LED, LED_CNT}, {EV_SND, SND_CNT}, {EV_FF, FF_CNT},   {EV_SW, SW_CNT},
};

// A set of bits as the kernel keeps it, in numbers of the machine's own size and byte order.
struct KernelBits {
    static constexpr size_t WORD_BITS = sizeof(unsigned long) * 8;
    unsigned long words[(KEY_CNT + WORD_BITS - 1) / WORD_BITS] = {};

    void set(size_t bit) { words[bit / WORD_BITS] |= 1ul << bit % WORD_BITS; }
    static size_t size_of(size_t bits) { return (bits + WORD_BITS - 1) / WORD_BITS * sizeof(unsigned long); }
};

KernelBits bits_of(const KeyDevice& device, unsigned type) {
    KernelBits out;
    if (type == 0) {
        out.set(EV_SYN);
        if (device.keys.any()) {
            out.set(EV_KEY);
        }
        if (device.is_touch_panel) {
            out.set(EV_ABS);
        }
    } else if (type == EV_KEY) {
        for (size_t key = 0; key < device.keys.size(); ++key) {
            if (device.keys[key]) {
                out.set(key);
            }
        }
    } else if (type == EV_ABS && device.is_touch_panel) {
        for (const unsigned axis : TOUCH_AXES) {
            out.set(axis);
        }
    }
    return out;
}

int answer_instead(KeyDevice* device, Request request) {
    return take_answer(&device->answers[static_cast<size_t>(request)]);
}

// Calls `visit` with each open file of the device.
template <typename Files, typename Visit>
void for_each_file(Files& files, const KeyDevice& device, Visit visit) {
    for (auto& file : files) {
        if (file.key_device == &device) {
            visit(&file);
        }
    }
}

}  // namespace

void key_devices_reset(Driver* driver) {
    KeyDevice power;
    power.name = "event0";
    power.keys.set(KEY_POWER);
    KeyDevice volume;
    volume.name = "event1";
    volume.keys.set(KEY_VOLUMEDOWN).set(KEY_VOLUMEUP);
    KeyDevice touch;
    touch.name = "event2";
    touch.is_touch_panel = true;
    const KeyDevice at_boot[KEY_DEVICE_COUNT] = {power, volume, touch};
    std::copy(std::begin(at_boot), std::end(at_boot), driver->key_devices);
    for (OpenFile& file : driver->files) {
        file.events.clear();
    }
}

KeyDevice* key_device(Driver* driver, std::string_view name) {
    auto* const found = std::find_if(std::begin(driver->key_devices), std::end(driver->key_devices),
                                     [name](const KeyDevice& device) { return device.name == name; });
    return found != std::end(driver->key_devices) ? found : nullptr;
}

int key_open(Driver* driver, KeyDevice* device, OpenFile** file) {
    if (device->unplugged) {
        return -ENODEV;
    }
    const int instead = answer_instead(device, Request::open);
    if (instead != 0) {
        return instead;
    }
    *file = &driver->files.emplace_back();
    (*file)->key_device = device;
    return 0;
}

int key_ioctl(OpenFile* file, uint32_t code, std::string* bits) {
    KeyDevice* device = file->key_device;
    if (device->unplugged) {
        return -ENODEV;
    }
    // The code of the request for bits holds its type of event and how much room the program has.
    const unsigned type = _IOC_NR(code) - _IOC_NR(EVIOCGBIT(0, 0));
    const size_t room = _IOC_SIZE(code);
    if (_IOC_DIR(code) != _IOC_READ || _IOC_TYPE(code) != _IOC_TYPE(EVIOCGBIT(0, 0)) || type > EV_MAX) {
        return -EINVAL;
    }
    const int instead = answer_instead(device, Request::bits);
    if (instead != 0) {
        return instead;
    }
    const auto* const row = std::find_if(std::begin(BIT_COUNTS), std::end(BIT_COUNTS),
                                         [type](const auto& other) { return other.type == type; });
    if (row == std::end(BIT_COUNTS)) {
        return -EINVAL;
    }
    const KernelBits all = bits_of(*device, type);
    bits->assign(reinterpret_cast<const char*>(all.words), std::min(room, KernelBits::size_of(row->bits)));
    return static_cast<int>(bits->size());
}

int key_read(OpenFile* file, size_t size, std::string* events) {
    if (size < EVENT_SIZE) {
        return -EINVAL;
    }
    if (file->key_device->unplugged) {
        return -ENODEV;
    }
    const int instead = answer_instead(file->key_device, Request::read);
    if (instead != 0) {
        return instead;
    }
    if (file->events.empty()) {
        return -EAGAIN;
    }
    const size_t count = std::min(size / EVENT_SIZE, file->events.size());
    const auto end = file->events.begin() + static_cast<ptrdiff_t>(count);
    events->reserve(count * EVENT_SIZE);
    std::for_each(file->events.begin(), end, [events](const input_event& event) {
        events->append(reinterpret_cast<const char*>(&event), EVENT_SIZE);
    });
    file->events.erase(file->events.begin(), end);
    return 0;
}

unsigned key_poll(const OpenFile& file) {
    const unsigned waiting = file.events.empty() ? 0 : POLLIN | POLLRDNORM;
    return file.key_device->unplugged ? waiting | POLLHUP | POLLERR : waiting;
}

size_t key_files(const Driver& driver, const KeyDevice& device) {
    size_t count = 0;
    for_each_file(driver.files, device, [&count](const OpenFile*) { ++count; });
    return count;
}

size_t key_events(const Driver& driver, const KeyDevice& device) {
    size_t count = 0;
    for_each_file(driver.files, device, [&count](const OpenFile* file) {
        count +=
            static_cast<size_t>(std::count_if(file->events.begin(), file->events.end(),
                                              [](const input_event& event) { return event.type != EV_SYN; }));
    });
    return count;
}

bool key_report(Driver* driver, const KeyDevice& device, uint16_t code, int32_t value) {
    bool has_room = true;
    for_each_file(driver->files, device, [&has_room](const OpenFile* file) {
        has_room = has_room && file->events.size() + 2 <= KEY_EVENTS_MAX;
    });
    if (!has_room) {
        return false;
    }
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    input_event key = {};
    key.input_event_sec = now.tv_sec;
    key.input_event_usec = now.tv_nsec / 1000;
    key.type = EV_KEY;
    key.code = code;
    key.value = value;
    // A program may act on a report only when this mark has ended it.
    input_event end = key;
    end.type = EV_SYN;
    end.code = SYN_REPORT;
    end.value = 0;
    for_each_file(driver->files, device, [&](OpenFile* file) {
        file->events.insert(file->events.end(), {key, end});
        driver->wake(file);
    });
    return true;
}

void key_unplug(Driver* driver, KeyDevice* device) {
    device->unplugged = true;
    for_each_file(driver->files, *device, [driver](OpenFile* file) { driver->wake(file); });
}

}  // namespace phone
