// Running the touch panel's debug cycle.
#include "actions/touch_panel_actions.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "clients/dump_steps.h"
#include "daemon/product_version.h"
#include "output/compressed_dump.h"
#include "output/output_dir.h"
#include "output/shell_command.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "platform/plain_file.h"

namespace {

#define INPUT_DUMP "/data/dmd_temp.txt"
#define SCREENSHOT DMD_LOG_DIR "/tp_screencap.png"
#define KERNEL_LOG_LEVEL "/sys/bus/platform/devices/qelvan_touch/loglevel"
#define FRAMEWORK_LOG "/sys/touch_screen/synaptics_trigger_log"

constexpr char OPERATION[] = "tp_force_dump_error";

constexpr size_t TEXT_SIZE = 32768;

// Where the cycle stands.
enum : int {
    TP_DEBUG_IDLE = 0,       // touch aids and logs off
    TP_DEBUG_COLLECTED = 1,  // collection done or tried, waiting for tp_debug_disable
    TP_DEBUG_ARMED = 2,      // touch aids on, waiting for the second tp_force_dump_error
    TP_DEBUG_DISABLING = 3,  // tp_debug_disable is running its commands
};

// The thread that changes the state takes the step.
std::atomic<int> tp_debug_state{TP_DEBUG_IDLE};

struct tp_command {
    const char* line;
    const char* failed;            // begins the message for when it could not be run
    const char* output = nullptr;  // the file that it writes, if any
};

constexpr tp_command ARM[] = {
    {"settings put system show_touches 1", "show tp touch failed"},
    {"settings put system pointer_location 1", "show tp pointer location failed"},
    {"settings put system haptic_feedback_enabled 1", "open haptic feedback failed"},
};
constexpr tp_command TAKE_SCREENSHOT = {"screencap -p " SCREENSHOT, "screencap failed", SCREENSHOT};
constexpr tp_command DUMP_INPUT = {"dumpsys input > " INPUT_DUMP, "dumpsys inputfailed", INPUT_DUMP};
constexpr tp_command SWITCH_LOGS_ON[] = {
    {"echo 1 > " KERNEL_LOG_LEVEL, "open tp kernel log failed"},
    {"echo 1 > " FRAMEWORK_LOG, "enable tp framework log failed"},
};
constexpr tp_command VIBRATE = {"echo 500 > /sys/class/timed_output/vibrator/enable",
                                "vibrator enable failed"};
constexpr tp_command DISABLE[] = {
    {"echo 0 > " KERNEL_LOG_LEVEL, "disable tp kernel log failed"},
    {"echo 0 > " FRAMEWORK_LOG, "disable tp framework log failed"},
    {"settings put system show_touches 0", " tp touch disable failed"},
    {"settings put system pointer_location 0", " tp pointer location disable failed"},
    {"settings put system haptic_feedback_enabled 0", " haptic feedback disable failed"},
};

// Runs a command. Returns its status.
int run(const char* operation, const tp_command& command) {
    const bool may_run = command.output == nullptr || clear_place(command.output);
    const int status = may_run ? run_command(command.line) : -1;
    if (status < 0) {
        LOG_M_AS(operation, "%s. error:%s.", command.failed, strerror(errno));
    }
    return status;
}

// Runs commands in order, whatever becomes of each. Returns the status of the last one.
template <size_t N>
int run_all(const char* operation, const tp_command (&commands)[N]) {
    int status = 0;
    for (const tp_command& command : commands) {
        status = run(operation, command);
    }
    return status;
}

// The text of a dump while it is collected. It is cut at TEXT_SIZE bytes.
struct dump_text {
    UniqueBuffer bytes = allocate_zeroed(TEXT_SIZE);
    size_t length = 0;
};

void append(dump_text* text, const char* piece) {
    const size_t fitting = std::min(strlen(piece), TEXT_SIZE - text->length);
    memcpy(text->bytes.get() + text->length, piece, fitting);
    text->length += fitting;
}

// A file that goes into the dump text.
struct tp_source {
    const char* path;
    const char* name;   // in the messages about reading it
    bool says_success;  // a message tells when reading it brought something
};

constexpr tp_source RAW = {"/proc/touchscreen/rawdata", "tp raw capacity", true};
constexpr tp_source DIFF = {"/sys/touch_screen/synaptics_debug_test", "tp diff capacity", true};
constexpr tp_source INPUT = {INPUT_DUMP, "dmd_temp.txt", false};
constexpr tp_source USB = {"/sys/class/power_supply/USB/online", "USB state", false};
constexpr tp_source CHARGER = {"/sys/class/power_supply/Mains/online", "charger state", false};

enum class outcome { absent, added, empty };

// Appends what one read of the file returns. Absent: the file did not open, or there was no room for it.
// Empty: it opened, but the read returned nothing.
outcome append_file(dump_text* text, const tp_source& source) {
    const UniqueFd file = open_plain_file(source.path, O_RDONLY);
    if (!file.valid()) {
        LOG_M_AS(OPERATION, "Unable to open %s - %s\n", source.path, strerror(errno));
        return outcome::absent;
    }
    const size_t room = TEXT_SIZE - text->length;
    if (room == 0) {
        return outcome::absent;
    }
    errno = 0;
    const ssize_t got = read(file.get(), text->bytes.get() + text->length, room);
    if (got <= 0) {
        LOG_M_AS(OPERATION, "read %s failed!error:%s.", source.name, strerror(errno));
        return outcome::empty;
    }
    if (source.says_success) {
        LOG_M_AS(OPERATION, "read %s OK!", source.name);
    }
    text->length += static_cast<size_t>(got);
    return outcome::added;
}

// Appends a label and the state behind it, on a line of its own.
outcome append_state(dump_text* text, const char* label, const tp_source& source) {
    append(text, label);
    const outcome state = append_file(text, source);
    if (state == outcome::added) {
        append(text, "\n");
    }
    return state;
}

// Collects and saves the dump. Returns the status of the last command that it ran, or -1.
int collect(const dmd_client* client, int error_no, const char* RT_switch) {
    dump_text text;
    if (text.bytes == nullptr) {
        LOG_M_AS(OPERATION, "read_buffer alloc failed:%s\n", strerror(errno));
        return -1;
    }
    append_file(&text, RAW);
    append_file(&text, DIFF);
    append(&text, "\n");
    mkdir_parent();  // the screenshot may be the first file there
    run(OPERATION, TAKE_SCREENSHOT);
    const int input_status = run(OPERATION, DUMP_INPUT);
    append_file(&text, INPUT);
    append_state(&text, "USB insert state is:", USB);
    if (append_state(&text, "CHARGER insert state is:", CHARGER) == outcome::empty) {
        return input_status;
    }
    run_all(OPERATION, SWITCH_LOGS_ON);
    dmd_error_info info = describe_standalone_dump(client, error_no, RT_switch);
    dmd_compress_output(text.bytes.get(), static_cast<int>(text.length), &info, DUMP_BYTES);
    return run(OPERATION, VIBRATE);
}

}  // namespace

int tp_force_dump_error(dmd_client* client, int error_no, const char* RT_switch) {
    if (client == nullptr || RT_switch == nullptr) {
        LOG_M("invalid dmd client ptr or RT_switch.\n");
        tp_debug_state = TP_DEBUG_COLLECTED;
        return -1;
    }
    if (identify_product_version() == 1) {
        tp_debug_state = TP_DEBUG_COLLECTED;
        return -1;
    }
    int state = TP_DEBUG_IDLE;
    if (tp_debug_state.compare_exchange_strong(state, TP_DEBUG_ARMED)) {
        return run_all(__FUNCTION__, ARM);
    }
    if (state == TP_DEBUG_ARMED && tp_debug_state.compare_exchange_strong(state, TP_DEBUG_COLLECTED)) {
        return collect(client, error_no, RT_switch);
    }
    LOG_M("tp debug state is not idle or disbale for enable.\n");
    return -1;
}

int tp_debug_disable(dmd_client* client, int error_no, const char* RT_switch) {
    if (client == nullptr || RT_switch == nullptr) {
        LOG_M("invalid client ptr or RT switch ptr!\n");
        return -1;
    }
    int result = -1;
    int state = TP_DEBUG_COLLECTED;
    if (tp_debug_state.compare_exchange_strong(state, TP_DEBUG_DISABLING)) {
        result = run_all(__FUNCTION__, DISABLE);
        tp_debug_state = TP_DEBUG_IDLE;
    } else {
        LOG_M("tp debug state is not idle or enable for disable.\n");
    }
    LOG_D("tp debug diable called, error_no:%d.\n", error_no);
    return result;
}
