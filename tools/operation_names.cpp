// One row for each operation of the client table.
#include "tools/operation_names.h"

#include <iterator>
#include <sstream>

#include "actions/audio_actions.h"
#include "actions/audio_files.h"
#include "actions/display_actions.h"
#include "actions/log_collection_actions.h"
#include "actions/memory_dump.h"
#include "actions/sensorhub_actions.h"
#include "actions/touch_panel_actions.h"
#include "clients/generic_dump.h"

namespace tools {
namespace {

// The paths with a comma after each but the last.
std::string listed(const std::string& paths) {
    std::istringstream words(paths);
    std::string text;
    std::string path;
    while (words >> path) {
        text += (text.empty() ? "" : ", ") + path;
    }
    return text;
}

std::string seconds(unsigned int count) {
    return std::to_string(count) + " seconds";
}

// A dump that is no report.
#define OWN_DUMP "as a dump of its own, which it hands to the upload service"

const OperationFacts unnamed = {nullptr, "?", "not known to this tool", Reads::NOTHING, Report::NONE};

}  // namespace

const std::vector<OperationFacts> operation_facts = {
    {.operation = dsm_dump_error,
     .name = "dsm_dump_error",
     .does = "report",
     .reads = Reads::ERROR,
     .report = Report::FULL},
    {.operation = dsm_force_dump_error,
     .name = "dsm_force_dump_error",
     .does = "report of a forced dump",
     .reads = Reads::FORCED,
     .report = Report::FULL},
    {.operation = charge_dump_error,
     .name = "charge_dump_error",
     .does = "report with charge logs",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .packs = listed(CHARGE_LOGS)},
    {.operation = charge_monitor_dump_error,
     .name = "charge_monitor_dump_error",
     .does = "report with charge monitor logs",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .packs = CHARGE_MONITOR_LOGS},
    {.operation = power_key_dump_error,
     .name = "power_key_dump_error",
     .does = "short report, no archive",
     .reads = Reads::ERROR,
     .report = Report::SHORT},
    {.operation = apcp_dump_error,
     .name = "apcp_dump_error",
     .does = "report, with tombstones",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .packs = TOMBSTONES,
     .packs_for = {std::begin(CRASH_ERRORS), std::end(CRASH_ERRORS)}},
    {.operation = recovery_dump_error,
     .name = "recovery_dump_error",
     .does = "report with recovery log",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .packs = std::string(RECOVERY_LOG) + " below the folder in which dmd was started"},
    {.operation = sensorhub_dump_error,
     .name = "sensorhub_dump_error",
     .does = "report and memory image",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .debug = "also makes the driver dump, throws its text away, waits " +
              seconds(SENSORHUB_IMAGE_WAIT_SECONDS) + ", and saves rdr.bin of the newest entry of " +
              MEMORY_DUMP_DIR + ", as far as it fits the client's bytes, " OWN_DUMP,
     .saves_dump = true},
    {.operation = sensorhub_dump_error_no_image,
     .name = "sensorhub_dump_error_no_image",
     .does = "report",
     .reads = Reads::ERROR,
     .report = Report::FULL},
    {.operation = codec_dump_error,
     .name = "codec_dump_error",
     .does = "collect codec registers",
     .reads = Reads::NOTHING,
     .report = Report::NONE,
     .debug = "writes the codec's registers to " CODEC_DUMP,
     .commercial = "nothing"},
    {.operation = hifi_force_dump_error,
     .name = "hifi_force_dump_error",
     .does = "print audio DSP log",
     .reads = Reads::NOTHING,
     .report = Report::NONE,
     .debug = "prints /proc/hifidebug/dspdumplog where the daemon prints; nothing keeps it",
     .commercial = "nothing"},
    {.operation = media_dump_error,
     .name = "media_dump_error",
     .does = "collect media state",
     .reads = Reads::NOTHING,
     .report = Report::NONE,
     .debug = "writes what the media services say of themselves to " + listed(MEDIA_FILES),
     .commercial = "nothing"},
    {.operation = audio_dump_error,
     .name = "audio_dump_error",
     .does = "report with what was collected",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .waits = seconds(AUDIO_IMAGE_WAIT_SECONDS) + " for the audio DSP's log",
     .packs =
         "hifi.log of a folder in " HIFI_LOG_DIR ", " + listed(CODEC_DUMP " " MEDIA_FILES " " RESET_FILES),
     .last = "removes " + listed(CODEC_DUMP " " MEDIA_FILES)},
    {.operation = soc_hifi_reset_dump_error,
     .name = "soc_hifi_reset_dump_error",
     .does = "report with DSP memory",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .waits = seconds(2 * AUDIO_IMAGE_WAIT_SECONDS) + " for the DSP's images and log",
     .packs = std::string("hifi3.bin, hifi3_ocram.bin and hifi3_tcm.bin of a folder in ") + MEMORY_DUMP_DIR +
              ", and hifi.log of a folder in " HIFI_LOG_DIR},
    {.operation = codec_hifi_reset_dump_error,
     .name = "codec_hifi_reset_dump_error",
     .does = "report with codec and DSP memory",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .waits = seconds(AUDIO_IMAGE_WAIT_SECONDS) + " for the codec's images",
     .packs = std::string("zc8830_reg.bin, zc8830_ocram.bin and zc8830_tcm.bin of a folder in ") +
              MEMORY_DUMP_DIR + ", " + listed(RESET_FILES)},
    {.operation = maxim_smartpa_dump_error,
     .name = "maxim_smartpa_dump_error",
     .does = "report with codec registers",
     .reads = Reads::ERROR,
     .report = Report::FULL,
     .first = "on a debug build writes the codec's registers to " CODEC_DUMP,
     .packs = CODEC_DUMP,
     .last = "removes " CODEC_DUMP},
    {.operation = tp_force_dump_error,
     .name = "tp_force_dump_error",
     .does = "touch panel data",
     .reads = Reads::NOTHING,
     .report = Report::NONE,
     .debug =
         "the first time shows touches and pointer on the display, and switches haptic feedback on. The "
         "second time takes a screenshot, tp_screencap.png in the folder of the reports; has the input "
         "service write /data/dmd_temp.txt; switches the touch logs on; saves what panel, input service and "
         "power supplies say " OWN_DUMP "; and vibrates. If the charger's state reads empty, none of the "
         "last three happens. Both files stay. Then nothing until the debugging is switched off. Made for "
         "the volume keys",
     .commercial = "no dump",
     .saves_dump = true},
    {.operation = tp_debug_disable,
     .name = "tp_debug_disable",
     .does = "touch panel debugging off",
     .reads = Reads::NOTHING,
     .report = Report::NONE,
     .debug = "after a dump of touch panel data switches touch logs, touches, pointer and haptic feedback "
              "off. Made for the volume keys",
     .commercial = "the same, after an attempt at such a dump"},
    {.operation = lcd_force_dump_error,
     .name = "lcd_force_dump_error",
     .does = "the frames being displayed",
     .reads = Reads::NOTHING,
     .report = Report::NONE,
     .debug = "has the graphics side write its frames, waits up to " + seconds(FRAME_WAIT_SECONDS) +
              " for that, and saves each .bmp that was written meanwhile in /data/hwcdump " OWN_DUMP
              ". If that time runs out, it saves nothing. Made for the volume keys",
     .commercial = "nothing",
     .saves_dump = true},
};

const OperationFacts& facts_of(client_dump_operation operation) {
    for (const OperationFacts& facts : operation_facts) {
        if (facts.operation == operation) {
            return facts;
        }
    }
    return unnamed;
}

}  // namespace tools
