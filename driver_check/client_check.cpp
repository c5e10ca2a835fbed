// The checks, each of one rule for drivers. What dmd makes of a deviation stands in the line that tells it.
#include "driver_check/client_check.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/owned.h"
#include "platform/text.h"

namespace {

// The descriptors that dmd binds to a client, by their use.
enum { READING, LISTENING, POLLING, DESCRIPTORS };

// Looks that may pass until two in a row are the same, and the pause between them. An error may arrive
// meanwhile, and dmd may read one.
constexpr int LOOKS_MAX = 10;
constexpr useconds_t LOOK_PAUSE_US = 20000;

// Texts that are read before a driver is taken for one that never ends.
constexpr int DRAINED_MAX = 100;

// Times that dmd repeats a call.
constexpr int INTERRUPTIONS_MAX = 100;

// Characters of a text that are shown, with what is cut off and what does not print left out.
constexpr size_t SHOWN_SIZE = 64;
struct shown_text {
    char text[SHOWN_SIZE];
};

shown_text show(const char* text, size_t length) {
    shown_text shown = {};
    const size_t count = std::min(length, sizeof shown.text - 1);
    for (size_t i = 0; i < count; ++i) {
        shown.text[i] = isprint(static_cast<unsigned char>(text[i])) != 0 ? text[i] : '.';
    }
    return shown;
}

// A client under test.
struct bound_client {
    driver_check* check;
    UniqueFd fd[DESCRIPTORS];
    UniqueBuffer buffer;  // as many bytes as dmd reads of the client
    bool told_number;     // that an answer is no number
};

// One look at what a client has to tell.
struct look {
    bool readable[DESCRIPTORS];
    int number[DESCRIPTORS];
};

bool same(const look& one, const look& other) {
    return std::equal(one.readable, one.readable + DESCRIPTORS, other.readable) &&
           std::equal(one.number, one.number + DESCRIPTORS, other.number);
}

// What became of a call that did not succeed, as the words behind its name. It has left errno.
shown_text failure(int64_t result) {
    shown_text shown;
    if (result < 0) {
        format_text(shown.text, sizeof shown.text, "fails - %s", strerror(errno));
    } else {
        format_text(shown.text, sizeof shown.text, "returns %d", static_cast<int>(result));
    }
    return shown;
}

int ask(driver_check* check, int fd, dsm_call call, dsm_argument* argument) {
    announce(check, call);
    return dsm_request(fd, CALLS[call].request, argument);
}

// Opens the driver and binds the descriptor. Returns what the request returned, or -1 after a warning when
// the driver cannot be opened.
int open_and_bind(driver_check* check, const char* name, UniqueFd* fd) {
    announce(check, CALL_OPEN);
    fd->reset(open(DSM_DEVICE, O_RDWR | O_CLOEXEC));
    if (!fd->valid()) {
        warn(check, "open %s: dmd logs that it can't open %s", failure(-1).text, DSM_DEVICE);
        return -1;
    }
    dsm_argument argument = {};
    copy_text(argument.text, name);
    return ask(check, fd->get(), CALL_BIND, &argument);
}

// Binds the client as dmd does. False when that is all that can be done with it.
bool bind_all(bound_client* client) {
    driver_check* const check = client->check;
    for (int i = 0; i < DESCRIPTORS; ++i) {
        const int result = open_and_bind(check, check->name, &client->fd[i]);
        if (!client->fd[i].valid()) {
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
    return true;
}

bool is_decimal(const char* text) {
    char* end;
    errno = 0;
    const long long number = strtoll(text, &end, 10);
    if (end == text || errno != 0 || number < INT32_MIN || number > INT32_MAX) {
        return false;
    }
    // A line end does no harm.
    return end[strspn(end, WORD_SEPARATORS)] == '\0';
}

// The number that a request tells, as dmd takes it. Warns of the first answer that is none.
int ask_number(bound_client* client, int descriptor, dsm_call call) {
    dsm_argument argument = {};
    const int result = ask(client->check, client->fd[descriptor].get(), call, &argument);
    const int number = result == 0 ? atoi(argument.text) : 0;
    if (client->told_number) {
        return number;
    }
    client->told_number = true;
    if (result != 0) {
        warn(client->check, "%s %s: dmd logs it and goes on with 0", CALLS[call].name, failure(result).text);
    } else if (!is_decimal(argument.text)) {
        warn(client->check, "%s answers \"%s\", no decimal number of 32 bits: dmd makes %d of it",
             CALLS[call].name, show(argument.text, strlen(argument.text)).text, number);
    } else {
        client->told_number = false;
    }
    return number;
}

void check_state(bound_client* client) {
    ask_number(client, POLLING, CALL_STATE);
    client->told_number = false;
}

void check_names(bound_client* client) {
    const struct {
        dsm_call call;
        size_t room;
    } names[] = {{CALL_DEVICE_NAME, 31}, {CALL_MODULE_NAME, 4}, {CALL_IC_NAME, 4}};
    for (const auto& name : names) {
        const char* const what = CALLS[name.call].name;
        dsm_argument argument = {};
        const int result = ask(client->check, client->fd[LISTENING].get(), name.call, &argument);
        const size_t length = strlen(argument.text);
        if (result < 0) {
            continue;  // dmd takes the name in the configuration
        }
        if (result > 0) {
            warn(client->check,
                 "%s returns %d: dmd leaves the name empty, where a negative errno would make "
                 "it take the name in the configuration",
                 what, result);
        } else if (length == 0) {
            warn(client->check, "%s succeeds without a name: dmd leaves the name empty", what);
        } else if (length > name.room) {
            warn(client->check, "%s answers \"%s\": dmd keeps the first %d characters", what,
                 show(argument.text, length).text, static_cast<int>(name.room));
        }
    }
}

bool is_readable(bound_client* client, int descriptor) {
    announce(client->check, CALL_SELECT);
    const int fd = client->fd[descriptor].get();
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval at_once = {};
    return select(fd + 1, &set, nullptr, nullptr, &at_once) == 1;
}

look look_once(bound_client* client) {
    look now;
    for (int i = 0; i < DESCRIPTORS; ++i) {
        now.readable[i] = is_readable(client, i);
    }
    for (int i = 0; i < DESCRIPTORS; ++i) {
        now.number[i] = ask_number(client, i, CALL_ERROR);
    }
    return now;
}

// Looks until nothing changes any more.
look look_steadily(bound_client* client) {
    look now = look_once(client);
    for (int i = 0; i < LOOKS_MAX; ++i) {
        const look before = now;
        now = look_once(client);
        if (same(before, now)) {
            return now;
        }
        usleep(LOOK_PAUSE_US);
    }
    warn(client->check,
         "is readable, or tells an error number, now and then: dmd needs that to last as long "
         "as the error is pending");
    return now;
}

// Warns of what does not fit together. Returns whether an error is pending.
bool judge(bound_client* client, const look& now) {
    driver_check* const check = client->check;
    const int number = now.number[LISTENING];
    const bool readable = now.readable[LISTENING];
    const auto differs = [](const auto& values) { return values[0] != values[1] || values[1] != values[2]; };
    if (differs(now.readable)) {
        warn(check,
             "is readable on some of its three descriptors only: dmd waits at the second, and an error "
             "must be pending for all");
    } else if (differs(now.number)) {
        warn(check,
             "tells error %d, %d and %d on its three descriptors: dmd asks the second and reads from "
             "the first",
             now.number[0], now.number[1], now.number[2]);
    } else if (readable && number == 0) {
        warn(check,
             "is readable, but get error tells no number: dmd logs \"%s has error (0) ignored\" and "
             "throws the text away",
             check->name);
    } else if (!readable && number != 0) {
        warn(check, "tells error %d, but is not readable: dmd never reads that error", number);
    }
    return readable || number != 0;
}

// Reads as dmd does, again when it is interrupted.
ssize_t read_text(bound_client* client, dsm_call call) {
    announce(client->check, call);
    ssize_t got;
    int interruptions = 0;
    do {
        got = read(client->fd[READING].get(), client->buffer.get(), client->check->row->buffer_size);
    } while (got < 0 && errno == EINTR && ++interruptions < INTERRUPTIONS_MAX);
    return got;
}

void check_read_of_nothing(bound_client* client) {
    const ssize_t got = read_text(client, CALL_READ_NOTHING);
    if (got < 0) {
        warn(client->check, "%s %s, and should return 0: dmd logs it as an error",
             CALLS[CALL_READ_NOTHING].name, failure(got).text);
    } else if (got > 0) {
        warn(client->check,
             "a read returned %d bytes although nothing was pending: \"%s\". Either that error was "
             "reported this very moment, or dmd never reads it",
             static_cast<int>(got), show(client->buffer.get(), got).text);
    }
}

void check_forced_dump(bound_client* client) {
    driver_check* const check = client->check;
    const look before = look_steadily(client);
    dsm_argument argument = {};
    copy_text(argument.text, check->force);
    const int result = ask(check, client->fd[READING].get(), CALL_FORCE, &argument);
    if (result != 0) {
        note(check, "force dump of %s %s: dmd logs it and makes no report", check->force,
             failure(result).text);
        return;
    }
    const look forced = look_steadily(client);
    if (!same(before, forced)) {
        warn(check,
             "a forced dump makes the client readable, or changes what get error tells: dmd reports "
             "the dump as an error");
    }
    const ssize_t got = read_text(client, CALL_READ);
    if (got > 0) {
        note(check, "forced dump of %s, %d bytes: \"%s\"", check->force, static_cast<int>(got),
             show(client->buffer.get(), got).text);
    } else {
        warn(check, "a forced dump succeeds, but the read after it %s: dmd makes no report",
             failure(got).text);
    }
    if (!same(before, look_steadily(client)) && same(before, forced)) {
        warn(check,
             "the read after a forced dump drops a pending error: dmd reports that error's text as the "
             "dump, and never the error");
    }
}

// Reads all that is pending.
void drain(bound_client* client) {
    driver_check* const check = client->check;
    int texts = 0;
    for (; is_readable(client, LISTENING) && texts < DRAINED_MAX; ++texts) {
        const int number = ask_number(client, LISTENING, CALL_ERROR);
        const ssize_t got = read_text(client, CALL_READ);
        if (got <= 0) {
            warn(check,
                 "is readable, but a read %s: dmd logs it and comes back after longer and longer rests",
                 failure(got).text);
            return;
        }
        note(check, "took error %d, %d bytes: \"%s\"", number, static_cast<int>(got),
             show(client->buffer.get(), got).text);
    }
    if (texts == DRAINED_MAX) {
        warn(check,
             "is still readable after %d texts: if a read does not drop what it returns, dmd reports "
             "the same error without end",
             DRAINED_MAX);
    }
}

}  // namespace

void check_unknown_names(driver_check* check) {
    // The second fills the argument, and its first characters are a client's name.
    for (const char* const name : {"dmd-driver-check", "dsm_tp_is_only_the_beginning_of_"}) {
        UniqueFd fd;
        const int result = open_and_bind(check, name, &fd);
        if (fd.valid() && result == 0) {
            warn(check, "binds %s, which is no client: dmd cannot tell which clients there are", name);
        } else if (fd.valid() && result < 0 && errno == ENOTTY) {
            warn(check,
                 "does not know the request bind, 0x%x: dmd has no client. If dmd has 32 bits and the "
                 "kernel 64, the driver needs a compat_ioctl",
                 DSM_IOCTL_BIND);
            return;
        }
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
    check_state(&client);
    check_names(&client);
    const int warnings = check->findings.warnings;
    bool pending = judge(&client, look_steadily(&client));
    check->findings.seen_pending = pending;
    if (check->force != nullptr && check->row->force_dump[0] != nullptr) {
        check_forced_dump(&client);
    }
    if (check->drain) {
        drain(&client);
        if (check->findings.warnings == warnings) {
            pending = judge(&client, look_steadily(&client));
        }
    }
    if (!pending) {
        check_read_of_nothing(&client);
    }
}
