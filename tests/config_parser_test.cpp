// What the configuration parser makes of texts: the records it builds and what it says on the way.
#include "config/config_parser.h"

#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "clients/registry.h"
#include "platform/log.h"
#include "platform/owned.h"
#include "tests/config_text.h"
#include "tests/log_capture.h"

namespace {

using std::string;
using Lines = std::vector<string>;

// A text, the records it gives as show_all writes them, and the messages after the two of the loading.
struct Case {
    string what;
    string text;
    string records;
    string messages = {};
    bool parses = true;
};

const string LISTEN = "[s]\nalgo_type listen\nclient_name c\n";
const string POLL = "[s]\nalgo_type poll\nclient_name c\n";
const string LISTEN_FAILED = "[M/parse_section] parse_listen_section failed!\n";
const string POLL_FAILED = "[M/parse_section] parse_poll_section failed!\n";
const string NOT_FIRST = "[M/parse_section] parse_section: algo_type field not first field in section\n";
const string BROKEN = "[M/parse_config] line:788, error_found: 1\n";
const string NO_VALUE = "[M/parse_algo] Ivalid index pointer!\n";
const string NO_SLOT_LISTEN = "[M/parse_listen_section]  wrong trigger number\n";
const string NO_SLOT_POLL = "[M/parse_poll_section] Invalid trigger buf\n";
const string NO_MEMORY = "[M/parse_listen_section] Invalid trigger buf malloc failed\n";
const string EMPTY = "[M/parse_section] Error in section\n";

void check(const Case& wanted) {
    SCOPED_TRACE(wanted.what);
    LogCapture log;
    const UniqueFd file(open_text(wanted.text.data(), wanted.text.size()));
    setting_info* head = nullptr;
    EXPECT_EQ(parse_config(&head, file.get()), wanted.parses ? 0 : -1);
    EXPECT_EQ(show_all(head), wanted.records);
    free_settings(head);
    string messages;
    for (const string& line : log.lines()) {
        messages += line + "\n";
    }
    const size_t size = std::min(wanted.text.size(), MAX_CONFIG_BYTES);
    EXPECT_EQ(messages,
              "[M/parse_config] Loading  configuration file...\n[M/parse_config] Config file read (" +
                  std::to_string(size) + " bytes)\n" + wanted.messages);
}

void check(const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        check(each);
    }
}

// A 0 among the characters of a literal.
template <size_t N>
string with_nul(const char (&text)[N]) {
    return string(text, N - 1);
}

TEST(ConfigParser, FileStructure) {
    check({
        {.what = "empty file", .text = "", .records = ""},
        {.what = "blank file", .text = " \t\r\n", .records = ""},
        {.what = "words outside sections, each line ended",
         .text = "foo bar [x]\nclient_name c\nbaz\n",
         .records = "",
         .messages = "[M/parse_config] Ignoring unknown field foo.\n"
                     "[M/parse_config] Found filed client_name.\n"
                     "[M/parse_config] Ignoring unknown field c.\n"
                     "[M/parse_config] Ignoring unknown field baz.\n"},
        {.what = "what follows a cut line is no word, blank or not",
         .text = "foo bar baz",
         .records = "",
         .messages = "[M/parse_config] Ignoring unknown field foo.\n"
                     "[M/parse_config] Error in file\n" +
                     BROKEN,
         .parses = false},
        {.what = "a section where a value would stand",
         .text = "action [s]algo_type poll",
         .records = "s poll@0 ///",
         .messages = "[M/parse_config] Found filed action.\n"},
        {.what = "header without an end keeps the sections before it",
         .text = "[a]\nalgo_type poll\n[b\nalgo_type poll\n",
         .records = "a poll@0 ///",
         .messages = BROKEN,
         .parses = false},
        {.what = "header over two lines",
         .text = "[a [\n b]algo_type listen",
         .records = "a [\n b listen ///"},
        {.what = "sections stand in reverse order, a blank makes another name",
         .text = "[section a]algo_type poll\n[section a ]algo_type LiStEn\n",
         .records = "section a  listen /// | section a poll@0 ///"},
        {.what = "the character before a header is a line end",
         .text = "[a]algo_type listen\nclient_name c1[b]algo_type poll",
         .records = "b poll@0 /// | a listen c///"},
        {.what = "NUL bytes only",
         .text = with_nul("\0\0\0\n"),
         .records = "",
         .messages = "[M/parse_config] Error in file\n" + BROKEN,
         .parses = false},
        {.what = "NUL in a header",
         .text = with_nul("[a\0]algo_type poll\n"),
         .records = "",
         .messages = BROKEN,
         .parses = false},
        {.what = "NUL in a value costs its own section only",
         .text = with_nul("[a]\nalgo_type listen\nclient_name c\0\ndevice_name d\n[b]\nalgo_type poll\n"),
         .records = "b poll@0 /// | a listen ///",
         .messages = "[M/parse_name] Invalid index pointer!\n"
                     "[M/parse_listen_section] Invalid client name\n" +
                     LISTEN_FAILED},
        {.what = "NUL in a keyword",
         .text = LISTEN + with_nul("device\0_name d\n"),
         .records = "s listen c///",
         .messages = "[M/parse_listen_section] Error in file\n" + LISTEN_FAILED},
        {.what = "NUL in the first field",
         .text = with_nul("[a]algo_\0type poll\n[b]algo_type p\0oll\n"),
         .records = "b ? /// | a ? ///",
         .messages = EMPTY + NO_VALUE},
    });
}

TEST(ConfigParser, FirstField) {
    check({
        {.what = "other field first",
         .text = "[a]\nclient_name c\n[b]\nalgo_type poll\n",
         .records = "b poll@0 /// | a ? ///",
         .messages = NOT_FIRST},
        {.what = "unknown server",
         .text = "[a]\nalgo_type udp\nclient_name c\n[b]algo_type poll\n",
         .records = "b poll@0 /// | a ? ///",
         .messages = "[M/parse_algo] Unknown algo 'udp'\n"},
        {.what = "empty sections, one of them the last",
         .text = "[a][b]x[c] \n[d]algo_type poll\n[e]",
         .records = "e ? /// | d poll@0 /// | c ? /// | b ? /// | a ? ///",
         .messages = EMPTY + EMPTY + EMPTY + EMPTY},
        {.what = "algo_type without a value",
         .text = "[a]algo_type\n[b]algo_type\n\n[c]\nalgo_type listen\nclient_name c\n[d]algo_type",
         .records = "d ? /// | c listen c/// | b ? /// | a ? ///",
         .messages = NO_VALUE + NO_VALUE + NO_VALUE},
        {.what = "value on a later line",
         .text = "[a]algo_type \r\n\r\n listen trailing words\nic_name i",
         .records = "a listen //i/"},
    });
}

TEST(ConfigParser, Fields) {
    const string long_name = "0123456789012345678901234567890123456789";
    check({
        {.what = "names are cut to their fields, the first word counts",
         .text = POLL + "client_name " + long_name +
                 "\nDEVICE_NAME\r\n\td e\r\nic_name abcdef\nmodule_name xyz\n",
         .records = "s poll@0 " + long_name.substr(0, 31) + "/d/abc/xyz"},
        {.what = "unknown words, alone and with a line",
         .text = LISTEN + "foo\n\tbar action device_name x\r\ndevice_name d\n",
         .records = "s listen c/d//",
         .messages = "[M/parse_listen_section] Ignoring unknown field 'foo'\n"
                     "[M/parse_listen_section] Ignoring unknown field 'bar'\n"},
        {.what = "algo_type is no field further on",
         .text = POLL + "algo_type listen",
         .records = "s poll@0 c///",
         .messages = "[M/parse_poll_section] Ignoring unknown field 'algo_type'\n"},
        {.what = "keyword as the last word",
         .text = LISTEN + "device_name d\nic_name \n\t\n[t]algo_type poll",
         .records = "t poll@0 /// | s listen c/d//"},
        {.what = "listen sections have no period",
         .text = LISTEN + "sampling_period 5\ndevice_name d",
         .records = "s listen c/d//",
         .messages = "[M/parse_listen_section] Unkown record!\n"
                     "[M/parse_listen_section] Ignoring unknown field '5'\n"},
        {.what = "period", .text = POLL + "sampling_period 12.7", .records = "s poll@12 c///"},
        {.what = "period of two values",
         .text = POLL + "sampling_period 1 2\ndevice_name d",
         .records = "s poll@0 c///",
         .messages = "[M/parse_poll_section] Invalid sampling period value\n" + POLL_FAILED},
    });
}

TEST(ConfigParser, Triggers) {
    const string invalid_info = "[M/parse_action_values] client:dsm_tp has invalid action info config.\n";
    check({
        {.what = "lines in either order; a trigger is complete at its action line",
         .text = POLL + "num_triggers 5\nerror_no 1\nrunning_test_switch off\naction a+1 b+2\n"
                        "running_test_switch once\nerror_no 2 9\naction a+1\naction a+1\nerror_no 7\n",
         .records = "s poll@0 c/// 5{1 off a+1 b+2; 2 onc a+1; 0  a+1; -; -}"},
        {.what = "two counts",
         .text = LISTEN + "num_triggers 1 2\n",
         .records = "s listen c///",
         .messages = "[M/parse_listen_section] Invalid trigger numbers value\n" + LISTEN_FAILED},
        {.what = "no number",
         .text = LISTEN + "num_triggers abc\naction a+0",
         .records = "s listen c/// 0{}",
         .messages = NO_SLOT_LISTEN + LISTEN_FAILED},
        {.what = "a second array starts empty, the index goes on",
         .text = LISTEN + "num_triggers 1\nerror_no 1\naction a+0\nnum_triggers 2\nerror_no 2\naction b+0\n",
         .records = "s listen c/// 2{-; 2  b+0}"},
        {.what = "a refused array leaves the earlier one",
         .text = LISTEN + "num_triggers 1\nerror_no 1\naction a+0\nnum_triggers 2147483647\nerror_no 2\n",
         .records = "s listen c/// 1{1  a+0}",
         .messages = NO_MEMORY + LISTEN_FAILED},
        {.what = "no action in the line keeps the trigger incomplete",
         .text = LISTEN + "num_triggers 2\naction b+0\nerror_no 1\naction dsm_tp\n",
         .records = "s listen c/// 2{0  b+0; -}",
         .messages = invalid_info + "[M/parse_listen_section] Ivalid error action filed!\n" + LISTEN_FAILED},
        {.what = "plus signs alone end the line",
         .text = LISTEN + "num_triggers 2\naction a+1 ++ b+2\naction +\n",
         .records = "s listen c/// 2{0  a+1; -}",
         .messages = "[M/parse_action_values] Invalid action config. Please attention ...\n"
                     "[M/parse_action_values] Invalid action config. Please attention ...\n"
                     "[M/parse_listen_section] Ivalid error action filed!\n" +
                     LISTEN_FAILED},
        {.what = "an action without a slot number gives its place to the next",
         .text = LISTEN + "num_triggers 1\naction dsm_tp dsm_lcd+1 +dsm_tp ++x++2+9 y+-3 z+1e9 q+q\n",
         .records = "s listen c/// 1{0  dsm_lcd+1 x+2 y+-3 z+1000000000 q+0}",
         .messages = invalid_info + invalid_info},
        {.what = "eight actions at most",
         .text = LISTEN + "num_triggers 1\naction a+0 a+1 a+2 a+3 a+4 a+5 a+6 a+7 a+8 +\n",
         .records = "s listen c/// 1{0  a+0 a+1 a+2 a+3 a+4 a+5 a+6 a+7}"},
    });
}

TEST(ConfigParser, RefusesCountsWithoutAnArray) {
    for (const char* count : {"-1", "2147483647", "1e300", "-inf"}) {
        check({.what = count,
               .text = LISTEN + "num_triggers " + count + "\nerror_no 1\naction a+0\n",
               .records = "s listen c///",
               .messages = NO_MEMORY + LISTEN_FAILED});
    }
}

TEST(ConfigParser, TriggerLinesNeedAnOpenSlot) {
    const string full = "num_triggers 1\naction a+0\n";
    for (const string line : {"error_no 2", "running_test_switch on", "action b+0"}) {
        check({
            {.what = line + " before num_triggers",
             .text = LISTEN + line,
             .records = "s listen c///",
             .messages = NO_SLOT_LISTEN + LISTEN_FAILED},
            {.what = line + " before num_triggers, poll",
             .text = POLL + line,
             .records = "s poll@0 c///",
             .messages = NO_SLOT_POLL + POLL_FAILED},
            {.what = line + " after the last trigger",
             .text = LISTEN + full + line,
             .records = "s listen c/// 1{0  a+0}",
             .messages = NO_SLOT_LISTEN + LISTEN_FAILED},
            {.what = line + " after the last trigger, poll",
             .text = POLL + full + line,
             .records = "s poll@0 c/// 1{0  a+0}",
             .messages = NO_SLOT_POLL + POLL_FAILED},
        });
    }
}

TEST(ConfigParser, Numbers) {
    const struct {
        string written;
        string stored;
    } numbers[] = {
        {"1.9", "1"},   {"-7", "-7"}, {"5e9", "2147483647"},   {"-5e9", "-2147483648"},
        {"0x10", "16"}, {"nan", "0"}, {"-inf", "-2147483648"}, {"x", "0"},
        {"3x", "3"},    {"1,5", "1"},
    };
    for (const auto& number : numbers) {
        check({.what = number.written,
               .text = LISTEN + "num_triggers 1\nerror_no " + number.written + "\naction a+0\n",
               .records = "s listen c/// 1{" + number.stored + "  a+0}"});
    }
}

TEST(ConfigParser, RepeatedSections) {
    const string first =
        LISTEN + "device_name d\nnum_triggers 2\nerror_no 1\naction a+0\nerror_no 2\naction a+1\n";
    const string long_name = "[0123456789012345678901234567890123456789]";
    check({
        {.what = "fields overwrite, the index starts again",
         .text = first + "[S]\nalgo_type listen\nclient_name e\nerror_no 3\naction b+0\n",
         .records = "s listen e/d// 2{3  b+0; 2  a+1}"},
        {.what = "a wrong repetition changes nothing",
         .text = first + "[s]client_name e\n",
         .records = "s listen c/d// 2{1  a+0; 2  a+1}",
         .messages = NOT_FIRST},
        {.what = "another server starts afresh",
         .text = first + "[s]\nalgo_type poll\nsampling_period 3\n",
         .records = "s poll@3 c/d//"},
        {.what = "and back again, over an unknown one",
         .text =
             POLL + "sampling_period 3\nnum_triggers 1\naction a+0\n[s]algo_type x\n[s]algo_type listen\n",
         .records = "s listen c///",
         .messages = "[M/parse_algo] Unknown algo 'x'\n"},
        {.what = "an unknown one ends only its own occurrence",
         .text = first + "[s]algo_type x\ndevice_name f\n[s]algo_type listen\nic_name i\n",
         .records = "s listen c/d/i/ 2{1  a+0; 2  a+1}",
         .messages = "[M/parse_algo] Unknown algo 'x'\n"},
        {.what = "so does an action line without an action",
         .text = first + "[s]\nalgo_type listen\naction +\n",
         .records = "s listen c/d// 2{1  a+0; 2  a+1}",
         .messages = "[M/parse_action_values] Invalid action config. Please attention ...\n"
                     "[M/parse_listen_section] Ivalid error action filed!\n" +
                     LISTEN_FAILED},
        {.what = "a long name is cut, also in its repetition",
         .text = long_name + "algo_type poll\n" + long_name + "algo_type poll\nclient_name c",
         .records = "0123456789012345678901234567890 poll@0 c///"},
    });
}

// Whatever the limit falls into, the lines before it count and the file is not taken for a broken one.
TEST(ConfigParser, CutsLongFilesAtALine) {
    const string section = LISTEN + "num_triggers 1\nerror_no 5\n";
    const string action = "action a+23 b+1\n";
    const string header = "[t]algo_type poll\n";
    const size_t whole_action = action.size() - 1;  // a line counts without its line end
    const size_t whole_header = (action + header).size() - 1;
    for (size_t fits = 0; fits <= whole_header + 1; ++fits) {
        const string blank(MAX_CONFIG_BYTES - section.size() - fits, '\n');
        string records = "s listen c/// 1{-}";
        if (fits >= whole_action) {
            records = "s listen c/// 1{5  a+23 b+1}";
        }
        if (fits >= whole_header) {
            records = "t poll@0 /// | " + records;
        }
        check({.what = std::to_string(fits),
               .text = section + blank + action + header + "\n",
               .records = records});
    }
}

TEST(ConfigParser, ReadsAFileThatJustFitsToItsLastCharacter) {
    const string last = "ic_name x";
    const string blank(MAX_CONFIG_BYTES - LISTEN.size() - last.size(), ' ');
    check({.what = "fits", .text = LISTEN + blank + last, .records = "s listen c//x/"});
}

TEST(ConfigParser, DebugOutput) {
    debug_output_enabled = 1;
    check({.what = "each step",
           .text = "[a]algo_type listen\nclient_name c\nnum_triggers 1\naction x+1\n[c]algo_type u\n",
           .records = "c ? /// | a listen c/// 1{0  x+1}",
           .messages = "[D/parse_section] Parsing section a\n"
                       "[D/parse_listen_section] parse_listen_section: Parsing section a \n"
                       "[D/parse_listen_section] Found field 'client_name'\n"
                       "[D/parse_name] No. of items found : 1\n"
                       "[D/parse_listen_section] Found field 'num_triggers'\n"
                       "[D/parse_values] No. of items found : 1\n"
                       "[D/parse_listen_section] Found field 'action'\n"
                       "[D/parse_action_values] Found action 'x'\n"
                       "[D/parse_action_values] No. of items found : 1\n"
                       "[D/parse_section] Parsing section c\n"
                       "[M/parse_algo] Unknown algo 'u'\n"
                       "[D/parse_section] parse_section: Uknown algo type for section c\n"});
}

TEST(ConfigFile, IsMissing) {
    LogCapture log;
    EXPECT_EQ(parse_config_file("/tmp/missing"), -1);
    EXPECT_EQ(log.lines(), Lines{"[M/parse_config_file] Unable to open config file /tmp/missing, "
                                 "err_info:No such file or directory"});
}

TEST(ConfigFile, IsAFolder) {
    LogCapture log;
    EXPECT_EQ(parse_config_file("/tmp"), -1);
    EXPECT_EQ(log.lines(), (Lines{"[M/parse_config] Loading  configuration file...",
                                  "[M/parse_config] Failed to read config file",
                                  "[M/parse_config_file] Failed to parse config file /tmp."}));
}

TEST(ConfigFile, IsAPipeThatNobodyWritesInto) {
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    LogCapture log;
    EXPECT_EQ(parse_config_file("/tmp/pipe"), -1);
    EXPECT_TRUE(log.has(
        "Unable to open config file /tmp/pipe, err_info:it is a pipe or a terminal, only files are read"));
}

TEST(ConfigFile, IsBroken) {
    std::ofstream("/tmp/broken") << "[a]\nalgo_type poll\nclient_name c\n[b";
    LogCapture log;
    EXPECT_EQ(parse_config_file("/tmp/broken"), -1);
    EXPECT_TRUE(log.has("Failed to parse config file /tmp/broken."));
    EXPECT_EQ(show_all(setting_list), "a poll@0 c///");
}

TEST(ConfigFile, FindsSettings) {
    std::ofstream("/tmp/settings")
        << "[a]algo_type listen\nclient_name dsm_tp\n[b]algo_type poll\nclient_name dsm_tp\n"
           "[c]algo_type listen\nclient_name dsm_tp\n[a]algo_type listen\n[d]client_name dsm_tp\n";
    EXPECT_EQ(parse_config_file("/tmp/settings"), 0);
    ASSERT_NE(find_setting("DSM_TP", ALGO_LISTEN), nullptr);
    EXPECT_STREQ(find_setting("DSM_TP", ALGO_LISTEN)->section_name, "c");
    EXPECT_STREQ(find_setting("dsm_tp", ALGO_POLL)->section_name, "b");
    EXPECT_EQ(find_setting("dsm_t", ALGO_LISTEN), nullptr);
    EXPECT_EQ(find_setting("dsm_tp0", ALGO_POLL), nullptr);
    EXPECT_EQ(find_section(setting_list, "B"), find_setting("dsm_tp", ALGO_POLL));
}

// The file that ships, which lies beside the programs: nothing in it is passed over but remarks, and every
// client and slot that it names exists.
TEST(ConfigFile, SampleIsSound) {
    char path[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", path, sizeof path - 1), 0);
    ASSERT_EQ(dmd_client_init(), 0);
    LogCapture log;
    ASSERT_EQ(parse_config_file((string(dirname(path)) + "/device_state_monitor.conf").c_str()), 0);
    const int remarks = log.count("Ignoring unknown field #") + log.count("Ignoring unknown field '#'");
    EXPECT_EQ(log.lines().size(), static_cast<size_t>(remarks + 2));
    for (const setting_info* setting = setting_list; setting != nullptr; setting = setting->next) {
        SCOPED_TRACE(show(*setting));
        EXPECT_GT(trigger_count(*setting), 0);
        EXPECT_NE(get_client_by_name(setting->client_name), nullptr);
        for (int32_t i = 0; i < trigger_count(*setting); ++i) {
            const trigger_info& trigger = trigger_slots(*setting)[i];
            EXPECT_GT(trigger.action_num, 0);
            for (int32_t k = 0; k < trigger.action_num; ++k) {
                const dmd_client* const client = get_client_by_name(trigger.actions[k].client_name);
                ASSERT_NE(client, nullptr);
                const auto slot = static_cast<uint32_t>(trigger.actions[k].action_info);
                ASSERT_LT(slot, client->info->op_count);
                EXPECT_TRUE(setting->algo_type != ALGO_POLL || client->force_dump[slot] != nullptr);
            }
        }
    }
}

}  // namespace
