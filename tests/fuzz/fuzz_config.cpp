// Feeds any bytes to the configuration parser and checks what it makes of them.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "config/config_parser.h"
#include "platform/desk/log.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "tests/config_text.h"

namespace {

void require(bool holds) {
    if (!holds) {
        abort();
    }
}

template <size_t N>
void require_text(const char (&field)[N]) {
    require(strnlen(field, N) < N);
}

void check(const setting_info& setting) {
    require(setting.algo_type >= ALGO_LISTEN && setting.algo_type <= ALGO_UNKNOWN);
    require_text(setting.section_name);
    require_text(setting.client_name);
    require_text(setting.device_name);
    require_text(setting.ic_name);
    require_text(setting.module_name);
    const int32_t count = trigger_count(setting);
    require(count >= 0 && (count == 0 || trigger_slots(setting) != nullptr));
    require(setting.algo_type != ALGO_LISTEN || setting.poll.triggers == nullptr);
    require(setting.algo_type != ALGO_POLL || setting.listen.triggers == nullptr);
    for (int32_t i = 0; i < count; ++i) {
        const trigger_info& trigger = trigger_slots(setting)[i];
        require(trigger.action_num >= 0 && trigger.action_num <= MAX_ACTIONS);
        require_text(trigger.running_test_switch);
        for (int32_t k = 0; k < MAX_ACTIONS; ++k) {
            require_text(trigger.actions[k].client_name);
            require(k >= trigger.action_num || trigger.actions[k].client_name[0] != '\0');
        }
    }
}

// The messages are of no interest, but their texts must be readable to the end.
void discard(int /*priority*/, const char* /*tag*/, const char* text) {
    require(strlen(text) > 0);
}

}  // namespace

// A num_triggers of thousands of millions must fail like on a phone, not fill the machine with poisoned
// memory.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=64";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    debug_output_enabled = 1;
    desk_log_set_sink(discard);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const UniqueFd file(open_text(reinterpret_cast<const char*>(data), size));
    setting_info* head = nullptr;
    const int result = parse_config(&head, file.get());
    require(result == 0 || result == -1);
    for (const setting_info* setting = head; setting != nullptr; setting = setting->next) {
        check(*setting);
        require(find_section(head, setting->section_name) == setting);
    }
    free_settings(head);
    return 0;
}
