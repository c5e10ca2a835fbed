// The checks of errors and of forced dumps. Meanwhile the driver may report more, and dmd may read some, so
// what looks wrong is tried again before it counts.
#include "driver_check/pending_check.h"

#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "platform/monotonic_clock.h"
#include "platform/text.h"

namespace {

// Looks that may pass until two in a row are the same, and the pause between them.
constexpr int LOOKS_MAX = 10;
constexpr useconds_t LOOK_PAUSE_US = 20000;

// Times that a driver may do what looks wrong.
constexpr int DOUBTS_MAX = 2;

// Times that a text is read before a driver is taken for one that keeps it.
constexpr int SAME_TEXT_MAX = 100;

constexpr int64_t US_PER_S = 1000000;

// One look at what a client has to tell.
struct look {
    bool readable[DESCRIPTORS];
    int number[DESCRIPTORS];
};

bool same(const look& one, const look& other) {
    return std::equal(one.readable, one.readable + DESCRIPTORS, other.readable) &&
           std::equal(one.number, one.number + DESCRIPTORS, other.number);
}

// Whether the values of all descriptors are the same.
template <typename Value>
bool agree(const Value (&values)[DESCRIPTORS]) {
    return values[0] == values[1] && values[1] == values[2];
}

bool fits_together(const look& now) {
    return agree(now.readable) && agree(now.number) && now.readable[0] == (now.number[0] != 0);
}

bool tells_nothing(const look& now) {
    return same(now, look{});
}

look look_once(const bound_client& client) {
    look now;
    for (int i = 0; i < DESCRIPTORS; ++i) {
        now.readable[i] = is_readable(client, i);
    }
    for (int i = 0; i < DESCRIPTORS; ++i) {
        now.number[i] = ask_number(client, i, CALL_ERROR).number;
    }
    return now;
}

// Looks until nothing changes any more. Returns whether that came.
bool look_steadily(const bound_client& client, look* now) {
    *now = look_once(client);
    for (int i = 0; i < LOOKS_MAX; ++i) {
        const look before = *now;
        *now = look_once(client);
        if (same(before, *now)) {
            return true;
        }
        usleep(LOOK_PAUSE_US);
    }
    return false;
}

// Warns of what does not fit together. Returns whether an error is pending, or may be.
bool judge(const bound_client& client) {
    driver_check* const check = client.check;
    look now;
    bool steady = look_steadily(client, &now);
    if (!steady || !fits_together(now)) {
        steady = look_steadily(client, &now);
    }
    if (!steady) {
        note(check, "changes all the time, and was not judged: errors arrive, or dmd reads them");
        return true;
    }
    const int number = now.number[LISTENING];
    const bool readable = now.readable[LISTENING];
    if (readable) {
        // dmd asks for the number only then.
        const told_number told = ask_number(client, LISTENING, CALL_ERROR);
        if (told.fault[0] != '\0' && is_readable(client, LISTENING)) {
            warn(check, "%s %s", CALLS[CALL_ERROR].name, told.fault);
        }
    }
    if (!agree(now.readable)) {
        warn(check,
             "is readable on some of its three descriptors only: dmd waits at the second, and an error "
             "must be pending for all");
    } else if (readable && !agree(now.number)) {
        warn(check,
             "tells error %d, %d and %d on its three descriptors: dmd asks the second and reads from "
             "the first",
             now.number[0], now.number[1], now.number[2]);
    } else if (readable && number == 0) {
        warn(check,
             "is readable, but get error tells no number: dmd logs \"%s has error (0) ignored\" and "
             "throws the text away",
             check->name);
    } else if (!readable && number != 0 && !check->drain) {
        note(check, "tells error %d, but is not readable: if it is pending, dmd never reads it", number);
    }
    // A number alone may be that of the last error; a check that drains finds out.
    return check->drain ? readable || !agree(now.readable) : !tells_nothing(now);
}

// An error that arrives in that moment is taken.
void check_read_of_nothing(const bound_client& client) {
    driver_check* const check = client.check;
    for (int doubts = 1; doubts <= DOUBTS_MAX; ++doubts) {
        const ssize_t got = read_text(client, CALL_READ_NOTHING);
        if (got < 0) {
            warn(check, "%s %s, and should return 0: dmd logs it as an error", CALLS[CALL_READ_NOTHING].name,
                 failure(got).text);
        }
        if (got <= 0) {
            return;
        }
        const shown_text text = show(client.buffer.get(), got);
        note(check, "took an error that came this very moment, %d bytes: \"%s\"", static_cast<int>(got),
             text.text);
        look now;
        if (!look_steadily(client, &now) || !tells_nothing(now)) {
            return;
        }
    }
    warn(check, "a read returned a text %d times although nothing was pending: dmd never reads such an error",
         DOUBTS_MAX);
}

// Forces a dump once and says what came of it. Returns whether the driver may have shown it to others.
bool force_dump(const bound_client& client) {
    driver_check* const check = client.check;
    look before;
    look forced;
    look after;
    bool steady = look_steadily(client, &before);
    dsm_argument argument = {};
    copy_text(argument.text, check->force);
    const int result = ask(check, client.fd(READING), CALL_FORCE, &argument);
    if (result != 0) {
        note(check, "force dump of %s %s: dmd logs it and makes no report", check->force,
             failure(result).text);
        return false;
    }
    steady = look_steadily(client, &forced) && steady;
    const ssize_t got = read_text(client, CALL_READ);
    if (got > 0) {
        note(check, "forced dump of %s, %d bytes: \"%s\"", check->force, static_cast<int>(got),
             show(client.buffer.get(), got).text);
    } else {
        warn(check, "a forced dump succeeds, but the read after it %s: dmd makes no report",
             failure(got).text);
    }
    steady = look_steadily(client, &after) && steady;
    const int pending = before.number[READING];
    if (steady && pending != 0 && same(before, forced) && after.number[READING] != pending) {
        warn(check,
             "the read after a forced dump drops a pending error: dmd reports that error's text as the "
             "dump, and never the error");
    }
    return steady && same(before, after) && !same(before, forced);
}

void check_forced_dump(const bound_client& client, bool pending) {
    driver_check* const check = client.check;
    if (check->row->force_dump[0] == nullptr) {
        note(check, "not tried: a forced dump, because dmd forces none of this client");
        return;
    }
    if (pending && !check->drain) {
        note(check, "not tried: a forced dump, because its read could take what is pending (--drain)");
        return;
    }
    int doubts = 0;
    while (doubts < DOUBTS_MAX && force_dump(client)) {
        ++doubts;
    }
    if (doubts == DOUBTS_MAX) {
        warn(check,
             "a forced dump makes the client readable, or changes what get error tells, until it is read: "
             "dmd takes that for an error, and one that arrives meanwhile is thrown away or gets the wrong "
             "number");
    }
}

// Reads all that is pending.
void drain(const bound_client& client) {
    driver_check* const check = client.check;
    int doubts = 0;
    int times = 0;
    int last_number = 0;
    ssize_t last_got = 0;
    shown_text last_text = {};
    while (is_readable(client, LISTENING)) {
        const int number = ask_number(client, LISTENING, CALL_ERROR).number;
        const ssize_t got = read_text(client, CALL_READ);
        if (got <= 0) {
            const shown_text failed = failure(got);
            if (++doubts > DOUBTS_MAX && is_readable(client, LISTENING)) {
                warn(check,
                     "is readable, but a read %s: dmd logs it if the number has a trigger, and comes back "
                     "after longer and longer rests",
                     failed.text);
                return;
            }
            continue;
        }
        doubts = 0;
        const shown_text text = show(client.buffer.get(), got);
        note(check, "took error %d, %d bytes: \"%s\"", number, static_cast<int>(got), text.text);
        const bool again = number == last_number && got == last_got && strcmp(text.text, last_text.text) == 0;
        times = again ? times + 1 : 1;
        if (times >= SAME_TEXT_MAX && is_readable(client, LISTENING)) {
            warn(check,
                 "is still readable after the same text %d times: if a read does not drop what it returns, "
                 "dmd reports the same error without end",
                 SAME_TEXT_MAX);
            return;
        }
        last_number = number;
        last_got = got;
        last_text = text;
    }
    // An error may be pending although the client is not readable.
    const int number = ask_number(client, READING, CALL_ERROR).number;
    if (number == 0 || is_readable(client, LISTENING)) {
        return;
    }
    const ssize_t got = read_text(client, CALL_READ);
    if (got > 0) {
        check->findings.seen_pending = true;
        warn(check, "error %d was pending, %d bytes: \"%s\", but not readable: dmd never reads it", number,
             static_cast<int>(got), show(client.buffer.get(), got).text);
    }
}

// Somebody makes the driver report an error meanwhile.
void wait_for_error(const bound_client& client) {
    driver_check* const check = client.check;
    note(check, "report an error now: waiting for %d s", check->wait_seconds);
    fflush(stdout);
    announce(check, CALL_WAIT);
    const int fd = client.fd(LISTENING);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval longest = {check->wait_seconds, 0};
    const int64_t end = monotonic_us() + check->wait_seconds * US_PER_S;
    const int ready = select(fd + 1, &set, nullptr, nullptr, &longest);
    // A select that nobody wakes looks once more when its time is over.
    if (ready == 1 && monotonic_us() < end) {
        note(check, "an error woke select, and get error tells %d",
             ask_number(client, LISTENING, CALL_ERROR).number);
    } else if (is_readable(client, LISTENING)) {
        warn(check, "an error was reported, but did not wake select: dmd does not notice it");
    } else {
        note(check, "not tried: waking who waits; no error came, or another client's descriptors got it");
    }
}

}  // namespace

void check_errors(const bound_client& client) {
    driver_check* const check = client.check;
    const int warnings = check->findings.warnings;
    bool pending = judge(client);
    check->findings.seen_pending = pending;
    if (check->force != nullptr) {
        check_forced_dump(client, pending);
    }
    if (check->drain) {
        drain(client);
        pending = check->findings.warnings > warnings || judge(client);
    }
    if (!pending) {
        check_read_of_nothing(client);
    }
    if (check->wait_seconds == 0) {
        return;
    }
    if (pending) {
        note(check, "not tried: waking who waits, because an error is pending (--drain)");
    } else {
        wait_for_error(client);
    }
}
