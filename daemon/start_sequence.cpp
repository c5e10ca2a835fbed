// The wait for the phone's boot and the start steps.
#include "daemon/start_sequence.h"

#include <unistd.h>

#include "clients/registry.h"
#include "config/config_parser.h"
#include "daemon/command_line.h"
#include "platform/log.h"
#include "platform/properties.h"
#include "servers/listen_server.h"
#include "servers/poll_server.h"
#include "triggers/command_server.h"
#include "triggers/key_detector.h"

namespace {

constexpr int MAX_BOOT_TRIES = 60;
constexpr unsigned int BOOT_TRY_SECONDS = 1;

struct start_step {
    int (*start)();       // 0 on success
    const char* failure;  // how its message begins
    int width;            // of the result in that message
};

// Run in this order, each only if the one before it succeeded.
constexpr start_step start_steps[] = {
    {dmd_client_init, "Dmd client init failed", 0},
    {[] { return parse_config_file(config_file_path); }, "Parse config file failed", 0},
    {dmd_listen_server_init, "listen server init failed", 0},
    {dmd_poll_server_init, "poll server init failed", 0},
    {dmd_command_sever_init, "command server init failed", 0},
    {dmd_key_detect_sever_init, "key detect server init failed", 5},
};

}  // namespace

int wait_for_boot_completion() {
    int tries = 0;
    while (++tries <= MAX_BOOT_TRIES) {
        char value[PROPERTY_VALUE_MAX] = {};
        if (property_get("dev.bootcomplete", value, "0") > 0 && value[0] == '1') {
            break;
        }
        sleep(BOOT_TRY_SECONDS);
    }
    return tries;
}

void run_start_steps() {
    for (const start_step& step : start_steps) {
        const int result = step.start();
        if (result != 0) {
            LOG_M_AS("main", "%s :%*d\n", step.failure, step.width, result);
            return;
        }
    }
}
