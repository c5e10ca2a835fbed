// The driver's clients, queues and answers.
#include "emulator/driver.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "emulator/client_names.h"
#include "emulator/key_devices.h"
#include "emulator/memory_image.h"
#include "emulator/refusal.h"

namespace phone {

namespace {

// The client whose forced dump leaves a memory image, and the image unless a test sets another.
constexpr char IMAGE_CLIENT[] = "dsm_sensorhub";
constexpr char IMAGE[] = "memory image of the sensor hub\n";

struct RequestCode {
    uint32_t code;
    Request request;
};

constexpr RequestCode REQUEST_CODES[] = {
    {0xc02078f1, Request::bind},    {0xc02078f2, Request::state},       {0xc02078f3, Request::force},
    {0xc02078f4, Request::error},   {0xc02078f5, Request::device_name}, {0xc02078f6, Request::module_name},
    {0xc02078f7, Request::ic_name},
};

// The answer that a test wants for this request of a client (null when there is none), or 0.
int answer_instead(Driver* driver, Client* client, Request request) {
    const size_t index = static_cast<size_t>(request);
    const int result = client != nullptr ? take_answer(&client->answers[index]) : 0;
    return result != 0 ? result : take_answer(&driver->answers[index]);
}

std::string_view text_of(const char (&argument)[ARGUMENT_SIZE]) {
    return {argument, strnlen(argument, ARGUMENT_SIZE)};
}

void put_number(char (&out)[ARGUMENT_SIZE], int32_t number) {
    snprintf(out, ARGUMENT_SIZE, "%" PRId32, number);
}

bool is_readable(const Driver& driver, const OpenFile& file) {
    const Client* const client = file.client;
    const bool pending = !client->pending.empty();
    switch (client->fault) {
        case Fault::always_readable:
            return true;
        case Fault::never_readable:
            return false;
        case Fault::one_readable: {
            const auto first =
                std::find_if(driver.files.begin(), driver.files.end(),
                             [client](const OpenFile& other) { return other.client == client; });
            return pending && &*first == &file;
        }
        case Fault::force_readable:
            return pending || file.forced;
        default:
            return pending;
    }
}

void wake_all(Driver* driver, const Client* client) {
    for (OpenFile& file : driver->files) {
        if (file.key_device == nullptr && (client == nullptr || file.client == client)) {
            driver->wake(&file);
        }
    }
}

int bind(Driver* driver, OpenFile* file, std::string_view name) {
    Client* client = driver_client(driver, name);
    const int instead = answer_instead(driver, client, Request::bind);
    if (instead != 0) {
        return instead;
    }
    if (client == nullptr) {
        return -EINVAL;
    }
    OpenFile fresh;
    fresh.client = client;
    fresh.poll_handle = file->poll_handle;
    *file = std::move(fresh);
    return 0;
}

int give_text(const std::string& text, char (&out)[ARGUMENT_SIZE]) {
    if (text.empty()) {
        return -ENODATA;
    }
    memcpy(out, text.data(), std::min(text.size(), ARGUMENT_SIZE));
    return 0;
}

int force_dump(const Driver& driver, OpenFile* file, std::string_view number) {
    const Client& client = *file->client;
    if (client.name == IMAGE_CLIENT && !driver.image.empty()) {
        try {
            write_memory_image(driver.image);
        } catch (const Refusal& refusal) {
            // The hardware tells nobody that it found no room.
            print_refusal(refusal.what());
        }
    }
    const std::string text(number);
    file->forced = true;
    file->forced_text = client.has_force_text ? client.force_text
                                              : "forced dump of error " + std::to_string(atoi(text.c_str())) +
                                                    " of " + client.name + "\n";
    return 0;
}

}  // namespace

void driver_reset(Driver* driver) {
    for (OpenFile& file : driver->files) {
        file.forced = false;
        if (file.client != nullptr && !file.client->built_in) {
            file.client = nullptr;
        }
    }
    driver->clients.remove_if([](const Client& client) { return !client.built_in; });
    if (driver->clients.empty()) {
        for (const char* name : CLIENT_NAMES) {
            driver->clients.emplace_back();
            driver->clients.back().name = name;
        }
    }
    for (Client& client : driver->clients) {
        Client fresh;
        fresh.name = client.name;
        fresh.built_in = true;
        client = std::move(fresh);
    }
    std::fill(std::begin(driver->answers), std::end(driver->answers), SetAnswer{});
    driver->pending_bytes = 0;
    driver->image = IMAGE;
    driver_set_gone(driver, false);
    key_devices_reset(driver);
}

int take_answer(SetAnswer* answer) {
    const int result = answer->result;
    if (answer->times > 0 && --answer->times == 0) {
        *answer = SetAnswer{};
    }
    return result;
}

Client* driver_client(Driver* driver, std::string_view name) {
    const auto found = std::find_if(driver->clients.begin(), driver->clients.end(),
                                    [name](const Client& client) { return client.name == name; });
    return found != driver->clients.end() ? &*found : nullptr;
}

int driver_open(Driver* driver, OpenFile** file) {
    if (driver->gone) {
        return -ENODEV;
    }
    const int instead = answer_instead(driver, nullptr, Request::open);
    if (instead != 0) {
        return instead;
    }
    *file = &driver->files.emplace_back();
    return 0;
}

void driver_release(Driver* driver, OpenFile* file) {
    driver->files.remove_if([file](const OpenFile& other) { return &other == file; });
}

int driver_ioctl(Driver* driver, OpenFile* file, uint32_t code, const char (&in)[ARGUMENT_SIZE],
                 char (&out)[ARGUMENT_SIZE]) {
    if (driver->gone) {
        return -ENODEV;
    }
    const auto* known = std::find_if(std::begin(REQUEST_CODES), std::end(REQUEST_CODES),
                                     [code](const RequestCode& row) { return row.code == code; });
    if (known == std::end(REQUEST_CODES)) {
        return -ENOTTY;
    }
    if (known->request == Request::bind) {
        return bind(driver, file, text_of(in));
    }
    Client* client = file->client;
    if (client == nullptr) {
        return -EINVAL;
    }
    const int instead = answer_instead(driver, client, known->request);
    if (instead != 0) {
        return instead;
    }
    const std::string& text_instead = client->answers[static_cast<size_t>(known->request)].text;
    if (!text_instead.empty()) {
        return give_text(text_instead, out);
    }
    switch (known->request) {
        case Request::state:
            put_number(out, client->state);
            return 0;
        case Request::error:
            put_number(out, client->pending.empty() ? 0 : client->pending.front().number);
            return 0;
        case Request::force:
            return force_dump(*driver, file, text_of(in));
        case Request::device_name:
            return give_text(client->names[0], out);
        case Request::module_name:
            return give_text(client->names[1], out);
        case Request::ic_name:
            return give_text(client->names[2], out);
        default:
            return -ENOTTY;
    }
}

int driver_read(Driver* driver, OpenFile* file, size_t size, uint64_t offset, std::string_view* text) {
    *text = {};
    if (driver->gone) {
        return -ENODEV;
    }
    Client* client = file->client;
    if (client == nullptr) {
        return -EINVAL;
    }
    if (offset == 0) {
        const int instead = answer_instead(driver, client, Request::read);
        if (instead != 0) {
            return instead;
        }
        file->handing.clear();
        const bool forced_last = client->fault == Fault::force_last && !client->pending.empty();
        if (file->forced && !forced_last) {
            file->forced = false;
            file->handing = std::move(file->forced_text);
        } else if (!client->pending.empty()) {
            ++client->handed;
            if (client->fault == Fault::read_keeps) {
                file->handing = client->pending.front().text;
            } else {
                file->handing = std::move(client->pending.front().text);
                client->pending.pop_front();
                driver->pending_bytes -= file->handing.size();
            }
        } else if (client->fault == Fault::read_waits) {
            return READ_WAITS;
        }
    }
    const std::string_view whole = file->handing;
    *text = whole.substr(std::min<uint64_t>(offset, whole.size()), size);
    return 0;
}

unsigned driver_poll(const Driver& driver, const OpenFile& file, bool waits) {
    if (driver.gone) {
        return POLLIN | POLLERR | POLLHUP;
    }
    if (waits && file.client != nullptr && file.client->fault == Fault::never_wakes) {
        return 0;
    }
    // A forced dump is read by whoever forced it; it makes nothing readable.
    return file.client != nullptr && is_readable(driver, file) ? POLLIN | POLLRDNORM : 0;
}

bool driver_report(Driver* driver, Client* client, int32_t number, const std::string& text) {
    if (client->pending.size() >= PENDING_MAX || PENDING_BYTES_MAX - driver->pending_bytes < text.size()) {
        return false;
    }
    client->pending.push_back({number, text});
    driver->pending_bytes += text.size();
    wake_all(driver, client);
    return true;
}

void driver_set_fault(Driver* driver, Client* client, Fault fault) {
    client->fault = fault;
    wake_all(driver, client);
}

void driver_set_gone(Driver* driver, bool gone) {
    driver->gone = gone;
    wake_all(driver, nullptr);
}

}  // namespace phone
