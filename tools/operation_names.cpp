// One line for each operation of the client table.
#include "tools/operation_names.h"

#include "actions/audio_actions.h"
#include "actions/display_actions.h"
#include "actions/log_collection_actions.h"
#include "actions/sensorhub_actions.h"
#include "actions/touch_panel_actions.h"
#include "clients/generic_dump.h"

namespace tools {
namespace {

const OperationName operation_names[] = {
    {dsm_dump_error, "dsm_dump_error", "report", true},
    {dsm_force_dump_error, "dsm_force_dump_error", "make the driver dump, and report", false},
    {charge_dump_error, "charge_dump_error", "report with the charge logs", true},
    {charge_monitor_dump_error, "charge_monitor_dump_error", "report with the charge monitor's logs", true},
    {power_key_dump_error, "power_key_dump_error", "short report, no archive", true},
    {apcp_dump_error, "apcp_dump_error", "report, with the tombstones for 20834 and 20837", true},
    {recovery_dump_error, "recovery_dump_error", "report with the recovery log", true},
    {sensorhub_dump_error, "sensorhub_dump_error", "report and memory image", true},
    {sensorhub_dump_error_no_image, "sensorhub_dump_error_no_image", "report", true},
    {codec_dump_error, "codec_dump_error", "collect the codec's registers, no report", false},
    {hifi_force_dump_error, "hifi_force_dump_error", "print the audio DSP's log, no report", false},
    {media_dump_error, "media_dump_error", "collect the media services' state, no report", false},
    {audio_dump_error, "audio_dump_error", "report with what was collected", true},
    {soc_hifi_reset_dump_error, "soc_hifi_reset_dump_error", "report with the DSP's memory", true},
    {codec_hifi_reset_dump_error, "codec_hifi_reset_dump_error", "report with codec and DSP memory", true},
    {maxim_smartpa_dump_error, "maxim_smartpa_dump_error", "report with the codec's registers", true},
    {tp_force_dump_error, "tp_force_dump_error", "touch panel data, made for the volume keys", false},
    {tp_debug_disable, "tp_debug_disable", "switch the touch panel's debugging off, made for the volume keys",
     false},
    {lcd_force_dump_error, "lcd_force_dump_error", "the frames being displayed, made for the volume keys",
     false},
};

const OperationName unnamed = {nullptr, "?", "not known to this tool", true};

}  // namespace

const OperationName& name_operation(client_dump_operation operation) {
    for (const OperationName& entry : operation_names) {
        if (entry.operation == operation) {
            return entry;
        }
    }
    return unnamed;
}

}  // namespace tools
