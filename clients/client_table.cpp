// The rows of the built-in client table. This is the one file here that names the dump actions.
#include "clients/client_table.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

#include "actions/audio_actions.h"
#include "actions/display_actions.h"
#include "actions/log_collection_actions.h"
#include "actions/sensorhub_actions.h"
#include "actions/touch_panel_actions.h"
#include "clients/dsm_device.h"
#include "clients/generic_dump.h"

namespace {

using operations = std::initializer_list<client_dump_operation>;

// A row: every client is bound, released and cleared alike. Slots that are not listed are empty; a list that
// is too long does not compile.
constexpr dmd_client_info row(const char* name, uint32_t type, uint32_t buffer_size, operations dump,
                              operations force_dump) {
    dmd_client_info info = {};
    for (int i = 0; name[i] != '\0'; ++i) {
        info.name[i] = name[i];
    }
    info.type = type;
    info.buffer_size = buffer_size;
    info.op_count = static_cast<uint32_t>(std::max(dump.size(), force_dump.size()));
    info.init = dsm_client_init;
    info.release = dsm_client_release;
    info.clear = dsm_clear_error;
    int slot = 0;
    for (const client_dump_operation operation : dump) {
        info.dump[slot++] = operation;
    }
    slot = 0;
    for (const client_dump_operation operation : force_dump) {
        info.force_dump[slot++] = operation;
    }
    return info;
}

// A new row goes last: the places of the others are fixed. Its name follows `row(` on the same line, where
// emulator/CMakeLists.txt looks for the phone's clients.
//
// Columns: name, type, buffer size in bytes, dump slots from 0, force-dump slots from 0.
constexpr dmd_client_info ROWS[] = {
    row("dsm_tp", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error, tp_force_dump_error, tp_debug_disable}),
    row("dsm_lcd", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error, lcd_force_dump_error}),
    row("dsm_pmu_irq", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_pmu_ocp", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_charger", 1, 1024, {charge_dump_error}, {dsm_force_dump_error}),
    row("dw_mmc", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("smartpa", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_battery", 1, 1024, {charge_dump_error}, {dsm_force_dump_error}),
    row("dsm_key", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_power_key", 1, 1024, {dsm_dump_error, power_key_dump_error}, {dsm_force_dump_error}),
    row("dsm_extisp", 1, 256, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_bluetooth", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_ovisp23", 1, 30000, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_camera_user", 2, 30000, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_wifi", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_ext4", 1, 16384, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_apcp", 1, 1024, {apcp_dump_error}, {dsm_force_dump_error}),
    row("dsm_flash", 2, 256, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_csi", 2, 256, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_sdcard", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("sdcard_vold", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_emmc", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_fs", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_battery_detect", 1, 1024, {charge_dump_error}, {dsm_force_dump_error}),
    row("dsm_compass", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_gsensor", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_als_ps", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_sensorhub", 2, 10485760, {sensorhub_dump_error, sensorhub_dump_error_no_image},
        {dsm_force_dump_error}),
    row("dsm_hall", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_nfc", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_pastar", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_spi", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_fpgaice40", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_modem_spi", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_anc_hs", 2, 1024, {maxim_smartpa_dump_error}, {}),
    row("dsm_audio", 2, 4096,
        {codec_dump_error, hifi_force_dump_error, media_dump_error, dsm_dump_error, audio_dump_error,
         soc_hifi_reset_dump_error, codec_hifi_reset_dump_error},
        {dsm_force_dump_error}),
    row("dsm_maxim_smartpa", 1, 1024, {dsm_dump_error, maxim_smartpa_dump_error}, {dsm_force_dump_error}),
    row("dsm_ovisp22", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_smpl", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_recovery", 1, 1024, {recovery_dump_error}, {}),
    row("dsm_selinux", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_pmu_coul", 1, 1024, {charge_dump_error}, {dsm_force_dump_error}),
    row("dsm_sdio", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_uart", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
    row("dsm_charge_monitor", 2, 1024, {charge_monitor_dump_error}, {}),
    row("dsm_cpu_buck", 1, 1024, {dsm_dump_error}, {dsm_force_dump_error}),
};

}  // namespace

constexpr dmd_client_table default_clients = {ROWS, static_cast<int>(std::size(ROWS))};
