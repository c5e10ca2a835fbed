// The checks, each of one rule for drivers. What dmd makes of a deviation stands in the line that tells it.
#include "driver_check/client_check.h"

#include <cerrno>
#include <cstring>

#include "clients/client_table.h"
#include "driver_check/bound_client.h"
#include "driver_check/pending_check.h"
#include "platform/text.h"

namespace {

// Binds the client as dmd does. False when that is all that can be done with it.
bool bind_all(bound_client* client) {
    driver_check* const check = client->check;
    for (int i = 0; i < DESCRIPTORS; ++i) {
        driver_fd* const device = &client->device[i];
        device->check = check;
        const int result = open_and_bind(device, check->name);
        if (!device->fd.valid()) {
            return false;
        }
        if (i == 0 && result < 0) {
            note(check, "not there: bind %s, and dmd leaves the client out", failure(result).text);
            check->findings.missing = true;
            return false;
        }
        if (result != 0) {
            warn(check, "bind of descriptor %d %s: dmd %s; nothing else was tried", i + 1,
                 failure(result).text, i == 0 ? "leaves the client out" : "does not watch the client");
            return false;
        }
    }
    check->findings.bound = true;
    return true;
}

// dmd asks only a client that it polls, so this is no deviation.
void check_state(const bound_client& client) {
    const told_number told = ask_number(client, POLLING, CALL_STATE);
    if (told.fault[0] != '\0') {
        note(client.check, "%s %s, if it polls this client", CALLS[CALL_STATE].name, told.fault);
    }
}

void check_names(const bound_client& client) {
    const struct {
        dsm_call call;
        size_t room;
    } names[] = {{CALL_DEVICE_NAME, 31}, {CALL_MODULE_NAME, 4}, {CALL_IC_NAME, 4}};
    for (const auto& name : names) {
        const char* const what = CALLS[name.call].name;
        dsm_argument argument = {};
        const int result = ask(client.check, client.fd(LISTENING), name.call, &argument);
        const size_t length = strlen(argument.text);
        if (result < 0) {
            continue;  // dmd takes the name in the configuration
        }
        if (result > 0) {
            warn(client.check,
                 "%s returns %d: dmd leaves the name empty, where a negative errno would make "
                 "it take the name in the configuration",
                 what, result);
        } else if (length == 0) {
            warn(client.check, "%s succeeds without a name: dmd leaves the name empty", what);
        } else if (length > name.room) {
            warn(client.check, "%s answers \"%s\": dmd keeps the first %d characters", what,
                 show(argument.text, length).text, static_cast<int>(name.room));
        }
    }
}

// Binds names that are nearly the client's: one character shorter, and one that fills the argument.
void check_nearby_names(driver_check* check) {
    const size_t length = strlen(check->name);
    dsm_argument names[2] = {};
    memcpy(names[0].text, check->name, length - 1);
    memset(names[1].text, '_', DSM_ARGUMENT_SIZE);
    memcpy(names[1].text, check->name, length);
    for (const dsm_argument& name : names) {
        driver_fd device = {check, UniqueFd()};
        if (!is_client(name.text) && open_and_bind(&device, name.text) == 0) {
            warn(
                check,
                "binds %s too, which is no client: where one name begins another, dmd gets the errors of the "
                "wrong client",
                name.text);
        }
    }
}

// Binds the clients from this row on, and holds each until the others are done. Returns how many there are.
// A client under test has its own descriptors; its errors are tried while all others are held.
int hold_from(driver_check* check, int row, const bound_client* tested) {
    if (row == default_clients.count) {
        if (tested != nullptr) {
            check_errors(*tested);
        }
        return 0;
    }
    if (tested != nullptr && check->row == &default_clients[row]) {
        return hold_from(check, row + 1, tested);
    }
    driver_fd device = {check, UniqueFd()};
    const bool bound = open_and_bind(&device, default_clients[row].name) == 0;
    return (bound ? 1 : 0) + (device.fd.valid() ? hold_from(check, row + 1, tested) : 0);
}

}  // namespace

bool is_client(const char* name) {
    for (const dmd_client_info& row : default_clients) {
        if (strcmp(row.name, name) == 0) {
            return true;
        }
    }
    return false;
}

void check_device(driver_check* check) {
    driver_fd device = {check, UniqueFd()};
    if (!open_driver(&device)) {
        check->findings.open_errno = errno;
        return;
    }
    dsm_argument argument = {};
    copy_text(argument.text, "dmd-driver-check");
    const int result = ask(check, device.fd.get(), CALL_BIND, &argument);
    if (result == 0) {
        warn(check, "binds dmd-driver-check, which is no client: dmd cannot tell which clients there are");
    } else if (result < 0 && errno == ENOTTY) {
        warn(check,
             "does not know the request bind, 0x%x: dmd has no client. If dmd has 32 bits and the "
             "kernel 64, the driver needs a compat_ioctl",
             DSM_IOCTL_BIND);
    }
}

void check_client(driver_check* check) {
    bound_client client = {};
    client.check = check;
    client.buffer = allocate_zeroed(size_t{check->row->buffer_size});
    if (client.buffer == nullptr) {
        warn(check, "cannot be checked: no memory for its buffer");
        return;
    }
    if (!bind_all(&client)) {
        return;
    }
    check_nearby_names(check);
    check_state(client);
    check_names(client);
    // A driver that keeps one client for all its descriptors has another one by then.
    if (check->wait_seconds > 0) {
        hold_from(check, 0, &client);
    } else {
        check_errors(client);
    }
}

void check_all_together(driver_check* check) {
    const int held = hold_from(check, 0, nullptr);
    if (held < check->bound) {
        warn(check,
             "binds %d clients at a time, and %d one by one: dmd holds all of them for as long as it runs",
             held, check->bound);
    }
}
