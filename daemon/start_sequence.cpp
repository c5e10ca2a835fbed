// The wait for the phone's boot and the start steps.
#include "daemon/start_sequence.h"

#include <unistd.h>

#include "clients/registry.h"
#include "config/config_parser.h"
#include "daemon/command_line.h"
#include "daemon/log.h"
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
    const char* failure;  // logged under the name "main", with the result
};

// In this order, each only after the one before it succeeded.
constexpr start_step start_steps[] = {
    {dmd_client_init, "[M/%s] Dmd client init failed :%d\n"},
    {[] { return parse_config_file(config_file_path); }, "[M/%s] Parse config file failed :%d\n"},
    {dmd_listen_server_init, "[M/%s] listen server init failed :%d\n"},
    {dmd_poll_server_init, "[M/%s] poll server init failed :%d\n"},
    {dmd_command_sever_init, "[M/%s] command server init failed :%d\n"},
    {dmd_key_detect_sever_init, "[M/%s] key detect server init failed :%5d\n"},
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
            __android_log_print(ANDROID_LOG_ERROR, "DMD", step.failure, "main", result);
            return;
        }
    }
}
