// The driver behind /dev/dsm as the kernel would have it: its clients, their pending errors, and what its
// requests answer; and the state of the input devices beside it, which key_devices.h works on. Pure state,
// but for the memory image that a forced dump of the sensor hub leaves in a file: how requests arrive is the
// business of driver_fuse.cpp, how a test or a person sets things is that of driver_control.cpp. One thread
// uses it, so there are no locks.
#pragma once

#include <linux/input.h>

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <string>
#include <string_view>

struct fuse_pollhandle;
struct fuse_req;

namespace phone {

// Bytes of the argument of each request, both ways.
constexpr size_t ARGUMENT_SIZE = 32;
// Pending errors that one client holds: far above what any test queues, far below what would hurt the desk.
constexpr size_t PENDING_MAX = 100000;
// Bytes of all pending texts together.
constexpr size_t PENDING_BYTES_MAX = 512u * 1024 * 1024;
// Input devices of the phone.
constexpr size_t KEY_DEVICE_COUNT = 3;

// What a program does to a device, as far as a test can give it another answer.
enum class Request { open, bind, state, force, error, device_name, module_name, ic_name, read, bits, count };

constexpr size_t REQUEST_COUNT = static_cast<size_t>(Request::count);

// An answer that replaces the driver's own while it is set.
struct SetAnswer {
    int result = 0;      // below zero an errno, above zero a result of the call; 0: nothing is set
    uint64_t times = 0;  // how often it is given before the driver answers itself again; 0: for ever
    std::string text;    // what a request answers that succeeds; empty: the driver's own answer
};

// What a client's driver can do wrong apart from its answers.
enum class Fault {
    none,
    always_readable,
    never_readable,
    never_wakes,     // who waits; who only looks sees what is pending
    one_readable,    // of the client's descriptors only the one that was opened first
    force_readable,  // a forced dump makes its descriptor readable
    force_last,      // the text of a forced dump comes after what is pending
    read_waits,      // until there is an error
    read_keeps,      // the error
    count
};

struct Report {
    int32_t number = 0;
    std::string text;
};

struct Client {
    std::string name;
    bool built_in = false;
    std::deque<Report> pending;
    uint64_t handed = 0;  // texts handed over so far
    int32_t state = 0;
    std::string names[3];  // device, module, IC; empty: the driver does not know it
    bool has_force_text = false;
    std::string force_text;
    SetAnswer answers[REQUEST_COUNT];
    Fault fault = Fault::none;
};

// An input device of the phone, as far as its keys go.
struct KeyDevice {
    const char* name = "";
    bool is_touch_panel = false;  // has positions, whatever its keys are
    std::bitset<KEY_CNT> keys;
    bool unplugged = false;
    SetAnswer answers[REQUEST_COUNT];
};

// One open descriptor (with its duplicates) of a device.
struct OpenFile {
    KeyDevice* key_device = nullptr;  // null: it is one of /dev/dsm
    std::deque<input_event> events;   // of the input device, not read yet
    Client* client = nullptr;         // null until it is bound
    bool forced = false;              // forced_text waits to be read
    std::string forced_text;
    std::string handing;  // the text of the read under way, for its later pieces
    fuse_pollhandle* poll_handle = nullptr;
    fuse_req* waiting_read = nullptr;  // of waiting_size bytes; it has yet to be answered
    size_t waiting_size = 0;
};

struct Driver {
    std::list<Client> clients;
    KeyDevice key_devices[KEY_DEVICE_COUNT];
    std::list<OpenFile> files;
    SetAnswer answers[REQUEST_COUNT];  // for all clients; the answer of a client itself goes before
    size_t pending_bytes = 0;
    std::string image;  // the memory of the sensor hub that its next forced dumps leave; empty: none
    bool gone = false;
    void (*wake)(OpenFile* file) = nullptr;  // readiness of `file` may have changed
};

// Brings the driver and the input devices to their state at start. Open files stay, bound to what they were
// bound to, unless a test had added that client.
void driver_reset(Driver* driver);

// The client of that name, or null.
Client* driver_client(Driver* driver, std::string_view name);

// The result of an answer that is set, one of its times used up; 0 when none is set.
int take_answer(SetAnswer* answer);

// The requests of programs. Each returns 0 or a positive result, or a negative errno.
int driver_open(Driver* driver, OpenFile** file);
void driver_release(Driver* driver, OpenFile* file);
int driver_ioctl(Driver* driver, OpenFile* file, uint32_t code, const char (&in)[ARGUMENT_SIZE],
                 char (&out)[ARGUMENT_SIZE]);

// What driver_read returns for a read that has to wait.
constexpr int READ_WAITS = 1;

// One piece of a read: `offset` is 0 for the first piece of each read call, and where the piece before ended
// for the others. *text (at most `size` bytes) is valid until the next call for that file. Once a file has
// been woken, the first piece of a read that had to wait is to be tried again.
int driver_read(Driver* driver, OpenFile* file, size_t size, uint64_t offset, std::string_view* text);

// The poll events that hold for `file` now, as told to a program that only looks, or one that `waits`.
unsigned driver_poll(const Driver& driver, const OpenFile& file, bool waits);

// A driver reports an error. False when the queues are full.
bool driver_report(Driver* driver, Client* client, int32_t number, const std::string& text);

// The client's driver misbehaves from now on.
void driver_set_fault(Driver* driver, Client* client, Fault fault);

// /dev/dsm goes away, or comes back.
void driver_set_gone(Driver* driver, bool gone);

}  // namespace phone
