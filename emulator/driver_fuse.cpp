// FUSE operations of the driver's file system: a root directory, and a file for each device.
#include "emulator/driver_fuse.h"

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>
#include <linux/fuse.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "emulator/key_devices.h"
#include "emulator/refusal.h"

namespace phone {

namespace {

// The node of DEVICES[i] is this plus i.
constexpr fuse_ino_t FIRST_DEVICE = FUSE_ROOT_ID + 1;
// Seconds for which the kernel may keep names and attributes: they never change.
constexpr double FOREVER_S = 86400.0 * 365;

Driver* driver_of(fuse_req_t req) {
    return static_cast<Driver*>(fuse_req_userdata(req));
}

// FUSE keeps a number for each open file; here it says where the file's record is.
OpenFile* file_of(const fuse_file_info* info) {
    return reinterpret_cast<OpenFile*>(info->fh);  // NOLINT(performance-no-int-to-ptr)
}

bool is_device(fuse_ino_t node) {
    return node >= FIRST_DEVICE && node < FIRST_DEVICE + std::size(DEVICES);
}

struct stat attributes(fuse_ino_t node) {
    struct stat out = {};
    out.st_ino = node;
    out.st_mode = is_device(node) ? S_IFREG | 0660 : S_IFDIR | 0755;
    out.st_nlink = is_device(node) ? 1 : 2;
    return out;
}

void op_lookup(fuse_req_t req, fuse_ino_t parent, const char* name) {
    for (size_t i = 0; parent == FUSE_ROOT_ID && i < std::size(DEVICES); ++i) {
        if (strcmp(name, DEVICES[i].file) == 0) {
            fuse_entry_param entry = {};
            entry.ino = FIRST_DEVICE + i;
            entry.attr = attributes(entry.ino);
            entry.attr_timeout = FOREVER_S;
            entry.entry_timeout = FOREVER_S;
            fuse_reply_entry(req, &entry);
            return;
        }
    }
    fuse_reply_err(req, ENOENT);
}

void op_getattr(fuse_req_t req, fuse_ino_t node, fuse_file_info*) {
    const struct stat attr = attributes(node);
    fuse_reply_attr(req, &attr, FOREVER_S);
}

void op_open(fuse_req_t req, fuse_ino_t node, fuse_file_info*) {
    Driver* driver = driver_of(req);
    OpenFile* file = nullptr;
    KeyDevice* device = key_device(driver, DEVICES[node - FIRST_DEVICE].file);
    const int result = device != nullptr ? key_open(driver, device, &file) : driver_open(driver, &file);
    if (result < 0) {
        fuse_reply_err(req, -result);
        return;
    }
    // A stream has no position: every read call starts at offset 0, and only the later pieces of a large one
    // have another offset. libfuse has no name for that flag, so the answer is made here.
    fuse_open_out out = {};
    out.fh = reinterpret_cast<uintptr_t>(file);
    out.open_flags = FOPEN_DIRECT_IO | FOPEN_STREAM;
    if (fuse_reply_buf(req, reinterpret_cast<const char*>(&out), sizeof(out)) != 0) {
        // The program was killed while it waited: there will be no release.
        driver_release(driver, file);
    }
}

void op_release(fuse_req_t req, fuse_ino_t, fuse_file_info* info) {
    OpenFile* file = file_of(info);
    if (file->poll_handle != nullptr) {
        fuse_pollhandle_destroy(file->poll_handle);
    }
    driver_release(driver_of(req), file);
    fuse_reply_err(req, 0);
}

// A program that waits in a read has got a signal.
void interrupt_read(fuse_req_t req, void* data) {
    static_cast<OpenFile*>(data)->waiting_read = nullptr;
    fuse_reply_err(req, EINTR);
}

void do_read(fuse_req_t req, OpenFile* file, size_t size, off_t offset) {
    std::string events;
    std::string_view text;
    int result = 0;
    if (file->key_device != nullptr) {
        result = key_read(file, size, &events);
        text = events;
    } else {
        result = driver_read(driver_of(req), file, size, static_cast<uint64_t>(offset), &text);
    }
    if (result == READ_WAITS && file->waiting_read != nullptr) {
        fuse_reply_err(req, EBUSY);
    } else if (result == READ_WAITS) {
        file->waiting_read = req;
        file->waiting_size = size;
        fuse_req_interrupt_func(req, interrupt_read, file);
    } else if (result < 0) {
        fuse_reply_err(req, -result);
    } else {
        fuse_reply_buf(req, text.data(), text.size());
    }
}

void op_read(fuse_req_t req, fuse_ino_t, size_t size, off_t offset, fuse_file_info* info) {
    do_read(req, file_of(info), size, offset);
}

void op_write(fuse_req_t req, fuse_ino_t, const char*, size_t, off_t, fuse_file_info*) {
    fuse_reply_err(req, EINVAL);
}

void op_ioctl(fuse_req_t req, fuse_ino_t, unsigned code, void*, fuse_file_info* info, unsigned,
              const void* in_data, size_t in_size, size_t out_size) {
    OpenFile* file = file_of(info);
    if (file->key_device != nullptr) {
        std::string bits;
        const int count = key_ioctl(file, code, &bits);
        fuse_reply_ioctl(req, count, bits.data(), bits.size());
        return;
    }
    char in[ARGUMENT_SIZE] = {};
    char out[ARGUMENT_SIZE] = {};
    // The kernel takes both sizes from the request's code; another size is another code, hence unknown.
    int result = -ENOTTY;
    if (in_size == ARGUMENT_SIZE && out_size == ARGUMENT_SIZE) {
        memcpy(in, in_data, ARGUMENT_SIZE);
        result = driver_ioctl(driver_of(req), file, code, in, out);
    }
    fuse_reply_ioctl(req, result, out, result == 0 ? ARGUMENT_SIZE : 0);
}

void op_poll(fuse_req_t req, fuse_ino_t, fuse_file_info* info, fuse_pollhandle* handle) {
    OpenFile* file = file_of(info);
    if (handle != nullptr) {
        if (file->poll_handle != nullptr) {
            fuse_pollhandle_destroy(file->poll_handle);
        }
        file->poll_handle = handle;
    }
    const bool waits = handle != nullptr;
    fuse_reply_poll(
        req, file->key_device != nullptr ? key_poll(*file) : driver_poll(*driver_of(req), *file, waits));
}

void wake(OpenFile* file) {
    if (file->poll_handle != nullptr) {
        fuse_lowlevel_notify_poll(file->poll_handle);
    }
    if (file->waiting_read != nullptr) {
        do_read(std::exchange(file->waiting_read, nullptr), file, file->waiting_size, 0);
    }
}

fuse_lowlevel_ops operations() {
    fuse_lowlevel_ops ops = {};
    ops.lookup = op_lookup;
    ops.getattr = op_getattr;
    ops.open = op_open;
    ops.release = op_release;
    ops.read = op_read;
    ops.write = op_write;
    ops.ioctl = op_ioctl;
    ops.poll = op_poll;
    return ops;
}

}  // namespace

fuse_session* start_driver_session(Driver* driver, int fuse_fd) {
    driver->wake = wake;
    driver_reset(driver);
    static const fuse_lowlevel_ops ops = operations();
    char program[] = "phone";
    char* arguments[] = {program, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    fuse_session* session = fuse_session_new(&args, &ops, sizeof(ops), driver);
    const std::string mounted = "/dev/fd/" + std::to_string(fuse_fd);
    if (session == nullptr || fuse_session_mount(session, mounted.c_str()) != 0) {
        throw Refusal("the FUSE library refuses to serve the driver");
    }
    return session;
}

bool serve_driver_request(fuse_session* session) {
    // The library keeps the buffer's memory here from one request to the next.
    static fuse_buf buffer = {};
    const int size = fuse_session_receive_buf(session, &buffer);
    if (size > 0) {
        fuse_session_process_buf(session, &buffer);
    }
    // Nothing to read is no end: a request may have been taken back since the poll.
    return fuse_session_exited(session) == 0 && (size > 0 || size == -EAGAIN || size == -EINTR);
}

}  // namespace phone
