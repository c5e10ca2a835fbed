// The calls of a check.
#include "driver_check/bound_client.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/io.h"
#include "platform/text.h"

namespace {

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

}  // namespace

driver_fd::~driver_fd() {
    if (fd.valid()) {
        announce(check, CALL_CLOSE);
    }
}

shown_text show(const char* text, size_t length) {
    shown_text shown = {};
    const size_t count = std::min(length, sizeof shown.text - 1);
    for (size_t i = 0; i < count; ++i) {
        shown.text[i] = isprint(static_cast<unsigned char>(text[i])) != 0 ? text[i] : '.';
    }
    return shown;
}

shown_text failure(int64_t result) {
    shown_text shown;
    if (result < 0) {
        format_text(shown.text, sizeof shown.text, "fails - %s", strerror(errno));
    } else {
        format_text(shown.text, sizeof shown.text, "returns %d", static_cast<int>(result));
    }
    return shown;
}

bool open_driver(driver_fd* device) {
    announce(device->check, CALL_OPEN);
    device->fd.reset(repeat_interrupted([] { return open(DSM_DEVICE, O_RDWR | O_CLOEXEC); }));
    return device->fd.valid();
}

int ask(driver_check* check, int fd, dsm_call call, dsm_argument* argument) {
    announce(check, call);
    return dsm_request(fd, CALLS[call].request, argument);
}

int open_and_bind(driver_fd* device, const char* name) {
    if (!open_driver(device)) {
        warn(device->check, "open %s: dmd logs that it can't open %s", failure(-1).text, DSM_DEVICE);
        return -1;
    }
    dsm_argument argument = {};
    copy_text(argument.text, name);
    return ask(device->check, device->fd.get(), CALL_BIND, &argument);
}

told_number ask_number(const bound_client& client, int descriptor, dsm_call call) {
    dsm_argument argument = {};
    const int result = ask(client.check, client.fd(descriptor), call, &argument);
    told_number told = {};
    if (result != 0) {
        format_text(told.fault, sizeof told.fault, "%s: dmd logs it and goes on with 0",
                    failure(result).text);
        return told;
    }
    told.number = atoi(argument.text);
    if (!is_decimal(argument.text)) {
        format_text(told.fault, sizeof told.fault,
                    "answers \"%s\", no decimal number of 32 bits: dmd makes %d of it",
                    show(argument.text, strlen(argument.text)).text, told.number);
    }
    return told;
}

bool is_readable(const bound_client& client, int descriptor) {
    announce(client.check, CALL_SELECT);
    const int fd = client.fd(descriptor);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval at_once = {};
    return select(fd + 1, &set, nullptr, nullptr, &at_once) == 1;
}

ssize_t read_text(const bound_client& client, dsm_call call) {
    announce(client.check, call);
    const int fd = client.fd(READING);
    return repeat_interrupted([&] { return read(fd, client.buffer.get(), client.check->row->buffer_size); });
}
