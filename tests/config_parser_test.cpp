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
    int result = 0;
};

const string LISTEN = "[s]\nalgo_type listen\nclient_name c\n";
const string POLL = "[s]\nalgo_type poll\nclient_name c\n";
const string LISTEN_FAILED = "[M/parse_section] parse_listen_section failed!\n";
const string POLL_FAILED = "[M/parse_section] parse_poll_section failed!\n";
const string NOT_FIRST = "[M/parse_section] parse_section: algo_type field not first field in section\n";
const string BROKEN = "[M/parse_config] line:788, error_found: 1\n";
const string NO_VALUE = "[M/parse_algo] Ivalid index pointer!\n";
const string EMPTY = "[M/parse_section] Error in section\n";

void check(const Case& wanted) {
    SCOPED_TRACE(wanted.what);
    LogCapture log;
    const UniqueFd file(open_text(wanted.text.data(), wanted.text.size()));
    setting_info* head = nullptr;
    EXPECT_EQ(parse_config(&head, file.get()), wanted.result);
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
        {"empty file", "", ""},
        {"blank file", " \t\r\n", ""},
        {"words outside sections, each line ended", "foo bar [x]\nclient_name c\nbaz\n", "",
         "[M/parse_config] Ignoring unknown field foo.\n"
         "[M/parse_config] Found filed client_name.\n"
         "[M/parse_config] Ignoring unknown field c.\n"
         "[M/parse_config] Ignoring unknown field baz.\n"},
        {"what follows a cut line is no word, blank or not", "foo bar baz", "",
         "[M/parse_config] Ignoring unknown field foo.\n"
         "[M/parse_config] Error in file\n" +
             BROKEN,
         -1},
        {"a section where a value would stand", "action [s]algo_type poll", "s poll@0 ///",
         "[M/parse_config] Found filed action.\n"},
        {"header without an end keeps the sections before it", "[a]\nalgo_type poll\n[b\nalgo_type poll\n",
         "a poll@0 ///", BROKEN, -1},
        {"header over two lines", "[a [\n b]algo_type listen", "a [\n b listen ///"},
        {"sections stand in reverse order, a blank makes another name",
         "[section a]algo_type poll\n[section a ]algo_type LiStEn\n",
         "section a  listen /// | section a poll@0 ///"},
        {"the character before a header is a line end",
         "[a]algo_type listen\nclient_name c1[b]algo_type poll", "b poll@0 /// | a listen c///"},
        {"NUL bytes only", with_nul("\0\0\0\n"), "", "[M/parse_config] Error in file\n" + BROKEN, -1},
        {"NUL in a header", with_nul("[a\0]algo_type poll\n"), "", BROKEN, -1},
        {"NUL in a value costs its own section only",
         with_nul("[a]\nalgo_type listen\nclient_name c\0\ndevice_name d\n[b]\nalgo_type poll\n"),
         "b poll@0 /// | a listen ///",
         "[M/parse_name] Invalid index pointer!\n"
         "[M/parse_listen_section] Invalid client name\n" +
             LISTEN_FAILED},
        {"NUL in a keyword", LISTEN + with_nul("device\0_name d\n"), "s listen c///",
         "[M/parse_listen_section] Error in file\n" + LISTEN_FAILED},
        {"NUL in the first field", with_nul("[a]algo_\0type poll\n[b]algo_type p\0oll\n"),
         "b ? /// | a ? ///", EMPTY + NO_VALUE},
    });
}

TEST(ConfigParser, FirstField) {
    check({
        {"other field first", "[a]\nclient_name c\n[b]\nalgo_type poll\n", "b poll@0 /// | a ? ///",
         NOT_FIRST},
        {"unknown server", "[a]\nalgo_type udp\nclient_name c\n[b]algo_type poll\n", "b poll@0 /// | a ? ///",
         "[M/parse_algo] Unknown algo 'udp'\n"},
        {"empty sections, one of them the last", "[a][b]x[c] \n[d]algo_type poll\n[e]",
         "e ? /// | d poll@0 /// | c ? /// | b ? /// | a ? ///", EMPTY + EMPTY + EMPTY + EMPTY},
        {"algo_type without a value",
         "[a]algo_type\n[b]algo_type\n\n[c]\nalgo_type listen\nclient_name c\n[d]algo_type",
         "d ? /// | c listen c/// | b ? /// | a ? ///", NO_VALUE + NO_VALUE + NO_VALUE},
        {"value on a later line", "[a]algo_type \r\n\r\n listen trailing words\nic_name i", "a listen //i/"},
    });
}

TEST(ConfigParser, Fields) {
    const string long_name = "0123456789012345678901234567890123456789";
    check({
        {"names are cut to their fields, the first word counts",
         POLL + "client_name " + long_name + "\nDEVICE_NAME\r\n\td e\r\nic_name abcdef\nmodule_name xyz\n",
         "s poll@0 " + long_name.substr(0, 31) + "/d/abc/xyz"},
        {"unknown words, alone and with a line",
         LISTEN + "foo\n\tbar action device_name x\r\ndevice_name d\n", "s listen c/d//",
         "[M/parse_listen_section] Ignoring unknown field 'foo'\n"
         "[M/parse_listen_section] Ignoring unknown field 'bar'\n"},
        {"algo_type is no field further on", POLL + "algo_type listen", "s poll@0 c///",
         "[M/parse_poll_section] Ignoring unknown field 'algo_type'\n"},
        {"keyword as the last word", LISTEN + "device_name d\nic_name \n\t\n[t]algo_type poll",
         "t poll@0 /// | s listen c/d//"},
        {"listen sections have no period", LISTEN + "sampling_period 5\ndevice_name d", "s listen c/d//",
         "[M/parse_listen_section] Unkown record!\n"
         "[M/parse_listen_section] Ignoring unknown field '5'\n"},
        {"period", POLL + "sampling_period 12.7", "s poll@12 c///"},
        {"period of two values", POLL + "sampling_period 1 2\ndevice_name d", "s poll@0 c///",
         "[M/parse_poll_section] Invalid sampling period value\n" + POLL_FAILED},
    });
}

TEST(ConfigParser, Triggers) {
    const string no_slot_listen = "[M/parse_listen_section]  wrong trigger number\n";
    const string no_slot_poll = "[M/parse_poll_section] Invalid trigger buf\n";
    const string bad_count = "[M/parse_listen_section] Invalid trigger numbers value\n";
    const string no_memory = "[M/parse_listen_section] Invalid trigger buf malloc failed\n";
    const string invalid_info = "[M/parse_action_values] client:dsm_tp has invalid action info config.\n";
    std::vector<Case> cases = {
        {"lines in either order; a trigger is complete at its action line",
         POLL + "num_triggers 5\nerror_no 1\nrunning_test_switch off\naction a+1 b+2\n"
                "running_test_switch once\nerror_no 2 9\naction a+1\naction a+1\nerror_no 7\n",
         "s poll@0 c/// 5{1 off a+1 b+2; 2 onc a+1; 0  a+1; -; -}"},
        {"two counts", LISTEN + "num_triggers 1 2\n", "s listen c///", bad_count + LISTEN_FAILED},
        {"no number", LISTEN + "num_triggers abc\naction a+0", "s listen c/// 0{}",
         no_slot_listen + LISTEN_FAILED},
        {"a second array starts empty, the index goes on",
         LISTEN + "num_triggers 1\nerror_no 1\naction a+0\nnum_triggers 2\nerror_no 2\naction b+0\n",
         "s listen c/// 2{-; 2  b+0}"},
        {"a refused array leaves the earlier one",
         LISTEN + "num_triggers 1\nerror_no 1\naction a+0\nnum_triggers 2147483647\nerror_no 2\n",
         "s listen c/// 1{1  a+0}", no_memory + LISTEN_FAILED},
        {"no action in the line keeps the trigger incomplete",
         LISTEN + "num_triggers 2\naction b+0\nerror_no 1\naction dsm_tp\n", "s listen c/// 2{0  b+0; -}",
         invalid_info + "[M/parse_listen_section] Ivalid error action filed!\n" + LISTEN_FAILED},
        {"plus signs alone end the line", LISTEN + "num_triggers 2\naction a+1 ++ b+2\naction +\n",
         "s listen c/// 2{0  a+1; -}",
         "[M/parse_action_values] Invalid action config. Please attention ...\n"
         "[M/parse_action_values] Invalid action config. Please attention ...\n"
         "[M/parse_listen_section] Ivalid error action filed!\n" +
             LISTEN_FAILED},
        {"an action without a slot number gives its place to the next",
         LISTEN + "num_triggers 1\naction dsm_tp dsm_lcd+1 +dsm_tp ++x++2+9 y+-3 z+1e9 q+q\n",
         "s listen c/// 1{0  dsm_lcd+1 x+2 y+-3 z+1000000000 q+0}", invalid_info + invalid_info},
        {"eight actions at most", LISTEN + "num_triggers 1\naction a+0 a+1 a+2 a+3 a+4 a+5 a+6 a+7 a+8 +\n",
         "s listen c/// 1{0  a+0 a+1 a+2 a+3 a+4 a+5 a+6 a+7}"},
    };
    for (const char* count : {"-1", "2147483647", "1e300", "-inf"}) {
        cases.push_back({count, LISTEN + "num_triggers " + count + "\nerror_no 1\naction a+0\n",
                         "s listen c///", no_memory + LISTEN_FAILED});
    }
    for (const char* line : {"error_no 2", "running_test_switch on", "action b+0"}) {
        const string one = "num_triggers 1\naction a+0\n";
        cases.push_back({line, LISTEN + line, "s listen c///", no_slot_listen + LISTEN_FAILED});
        cases.push_back({line, POLL + line, "s poll@0 c///", no_slot_poll + POLL_FAILED});
        cases.push_back(
            {line, LISTEN + one + line, "s listen c/// 1{0  a+0}", no_slot_listen + LISTEN_FAILED});
        cases.push_back({line, POLL + one + line, "s poll@0 c/// 1{0  a+0}", no_slot_poll + POLL_FAILED});
    }
    string numbers = LISTEN + "num_triggers 10\n";
    for (const char* number : {"1.9", "-7", "5e9", "-5e9", "0x10", "nan", "-inf", "x", "3x", "1,5"}) {
        numbers += string("error_no ") + number + "\naction a+0\n";
    }
    cases.push_back({"numbers", numbers,
                     "s listen c/// 10{1  a+0; -7  a+0; 2147483647  a+0; -2147483648  a+0; 16  a+0; 0  a+0; "
                     "-2147483648  a+0; 0  a+0; 3  a+0; 1  a+0}"});
    check(cases);
}

TEST(ConfigParser, RepeatedSections) {
    const string first =
        LISTEN + "device_name d\nnum_triggers 2\nerror_no 1\naction a+0\nerror_no 2\naction a+1\n";
    const string long_name = "[0123456789012345678901234567890123456789]";
    check({
        {"fields overwrite, the index starts again",
         first + "[S]\nalgo_type listen\nclient_name e\nerror_no 3\naction b+0\n",
         "s listen e/d// 2{3  b+0; 2  a+1}"},
        {"a wrong repetition changes nothing", first + "[s]client_name e\n",
         "s listen c/d// 2{1  a+0; 2  a+1}", NOT_FIRST},
        {"another server starts afresh", first + "[s]\nalgo_type poll\nsampling_period 3\n",
         "s poll@3 c/d//"},
        {"and back again, over an unknown one",
         POLL + "sampling_period 3\nnum_triggers 1\naction a+0\n[s]algo_type x\n[s]algo_type listen\n",
         "s listen c///", "[M/parse_algo] Unknown algo 'x'\n"},
        {"an unknown one ends only its own occurrence",
         first + "[s]algo_type x\ndevice_name f\n[s]algo_type listen\nic_name i\n",
         "s listen c/d/i/ 2{1  a+0; 2  a+1}", "[M/parse_algo] Unknown algo 'x'\n"},
        {"so does an action line without an action", first + "[s]\nalgo_type listen\naction +\n",
         "s listen c/d// 2{1  a+0; 2  a+1}",
         "[M/parse_action_values] Invalid action config. Please attention ...\n"
         "[M/parse_listen_section] Ivalid error action filed!\n" +
             LISTEN_FAILED},
        {"a long name is cut, also in its repetition",
         long_name + "algo_type poll\n" + long_name + "algo_type poll\nclient_name c",
         "0123456789012345678901234567890 poll@0 c///"},
    });
}

// Whatever the limit falls into, the lines before it count and the file is not taken for a broken one. A file
// that just fits counts to its last character, at the very end of the buffer.
TEST(ConfigParser, CutsLongFiles) {
    const string section = LISTEN + "num_triggers 1\nerror_no 5\n";
    const string last = "action a+23 b+1\n[t]algo_type poll\n";
    for (size_t fits = 0; fits <= last.size(); ++fits) {
        const string text = section + string(MAX_CONFIG_BYTES - section.size() - fits, '\n') + last + "\n";
        const char* records = fits < 15                ? "s listen c/// 1{-}"
                              : fits < last.size() - 1 ? "s listen c/// 1{5  a+23 b+1}"
                                                       : "t poll@0 /// | s listen c/// 1{5  a+23 b+1}";
        check({std::to_string(fits), text, records});
    }
    const string tail = "ic_name x";
    check({"fits", section + string(MAX_CONFIG_BYTES - section.size() - tail.size(), ' ') + tail,
           "s listen c//x/ 1{-}"});
}

TEST(ConfigParser, DebugOutput) {
    debug_output_enabled = 1;
    check({"each step", "[a]algo_type listen\nclient_name c\nnum_triggers 1\naction x+1\n[c]algo_type u\n",
           "c ? /// | a listen c/// 1{0  x+1}",
           "[D/parse_section] Parsing section a\n"
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

TEST(ConfigFile, WhatCannotBeRead) {
    char folder[] = "/tmp/config.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const string missing = string(folder) + "/missing";
    const string pipe = string(folder) + "/pipe";
    const string broken = string(folder) + "/broken";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::ofstream(broken) << "[a]\nalgo_type poll\nclient_name c\n[b";
    LogCapture log;
    EXPECT_EQ(parse_config_file(missing.c_str()), -1);
    EXPECT_EQ(log.lines(), Lines{"[M/parse_config_file] Unable to open config file " + missing +
                                 ", err_info:No such file or directory"});
    log.clear();
    EXPECT_EQ(parse_config_file(folder), -1);
    EXPECT_EQ(log.lines(),
              (Lines{"[M/parse_config] Loading  configuration file...",
                     "[M/parse_config] Failed to read config file",
                     string("[M/parse_config_file] Failed to parse config file ") + folder + "."}));
    EXPECT_EQ(parse_config_file(pipe.c_str()), -1);  // nobody writes into it
    EXPECT_TRUE(log.has("Unable to open config file " + pipe +
                        ", err_info:it is a pipe or a terminal, only files are read"));
    EXPECT_EQ(parse_config_file(broken.c_str()), -1);
    EXPECT_TRUE(log.has("Failed to parse config file " + broken + "."));
    EXPECT_EQ(show_all(setting_list), "a poll@0 c///");
}

TEST(ConfigFile, FindsSettings) {
    const string path = "/tmp/find_settings." + std::to_string(getpid());
    std::ofstream(path)
        << "[a]algo_type listen\nclient_name dsm_tp\n[b]algo_type poll\nclient_name dsm_tp\n"
           "[c]algo_type listen\nclient_name dsm_tp\n[a]algo_type listen\n[d]client_name dsm_tp\n";
    EXPECT_EQ(parse_config_file(path.c_str()), 0);
    unlink(path.c_str());
    ASSERT_NE(find_setting("DSM_TP", ALGO_LISTEN), nullptr);
    EXPECT_STREQ(find_setting("DSM_TP", ALGO_LISTEN)->section_name, "c");
    EXPECT_STREQ(find_setting("dsm_tp", ALGO_POLL)->section_name, "b");
    EXPECT_EQ(find_setting("dsm_t", ALGO_LISTEN), nullptr);
    EXPECT_EQ(find_setting("dsm_tp0", ALGO_POLL), nullptr);
    EXPECT_EQ(find_section(setting_list, "B"), find_setting("dsm_tp", ALGO_POLL));
}

// The file that ships, which lies beside the programs: nothing in it is passed over, and every client and
// slot that it names exists.
TEST(ConfigFile, SampleIsSound) {
    char path[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", path, sizeof path - 1), 0);
    ASSERT_EQ(dmd_client_init(), 0);
    LogCapture log;
    ASSERT_EQ(parse_config_file((string(dirname(path)) + "/device_state_monitor.conf").c_str()), 0);
    EXPECT_EQ(log.lines().size(), 2u);
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
