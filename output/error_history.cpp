// The error history of a commercial build.
#include "output/error_history.h"

#include "platform/log.h"
#include "platform/owned.h"

namespace {

// The result of a registration for which there was no memory.
constexpr int NO_MEMORY = -22;

dmd_error_history_info_node* history GUARDED_BY(output_lock) = nullptr;

}  // namespace

dmd_error_history_info_node* find_error_history_info(const dmd_error_info* info) {
    dmd_error_history_info_node* node = history;
    while (node != nullptr && node->error_no != info->error_no) {
        node = node->next;
    }
    return node;
}

int register_error_history_info(const dmd_error_info* info) {
    UniqueBlock<dmd_error_history_info_node> node = allocate<dmd_error_history_info_node>();
    if (node == nullptr) {
        LOG_M("malloc dmd_error_history_info_node failed!\n");
        return NO_MEMORY;
    }
    *node = {info->error_no, info->time, history};
    history = node.release();
    return 0;
}

int update_error_history_info(const dmd_error_info* info) {
    dmd_error_history_info_node* const node = find_error_history_info(info);
    if (node != nullptr) {
        node->time = info->time;
    } else {
        LOG_M("can find the error info node.\n");
    }
    return 0;
}
