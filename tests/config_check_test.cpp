// dmd-config-check: what it says of configurations, good and bad.
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "clients/client_table.h"
#include "clients/dispatch.h"
#include "clients/registry.h"
#include "config/config_parser.h"
#include "emulator/phone.h"
#include "tests/desk_calls.h"
#include "tests/phone_test.h"
#include "tools/config_check.h"
#include "tools/config_print.h"
#include "tools/operation_names.h"

namespace {

constexpr char FILE_NAME[] = "/tmp/a.conf";
// A sanitizer cannot look for leaks in a process that the phone does not show by number.
const std::string tool = "ASAN_OPTIONS=detect_leaks=0 " + std::string(phone::BUILD_DIR) + "/dmd-config-check";
const std::string sample = std::string(phone::BUILD_DIR) + "/device_state_monitor.conf";

enum Status { CLEAN = 0, WARNINGS = 1, UNREADABLE = 2 };

struct Answer {
    int status;
    std::string output;
};

Answer run(const std::string& arguments) {
    const int status = system((tool + " " + arguments + " > /tmp/output 2>&1").c_str());
    return {WEXITSTATUS(status), read_file("/tmp/output")};
}

// The warnings of a document, then its notes: line and text.
std::vector<std::string> findings_of(const nlohmann::json& document) {
    std::vector<std::string> found;
    const auto add = [&found](const char* kind, const nlohmann::json& finding) {
        const std::string line = finding["line"].is_null() ? "-" : finding["line"].dump();
        found.push_back(kind + line + " " + finding["text"].get<std::string>());
    };
    for (const auto& warning : document["warnings"]) {
        add("", warning);
    }
    for (const auto& note : document["notes"]) {
        add("note ", note);
    }
    return found;
}

std::string trigger(int number, const std::string& action) {
    return "error_no " + std::to_string(number) + "\naction " + action + "\n";
}

const std::string head = "[a]\nalgo_type listen\nclient_name dsm_tp\n";
const std::string poll_head = "[b]\nalgo_type poll\nclient_name dsm_tp\n";
const std::string whole = head + "num_triggers 1\n" + trigger(5, "dsm_tp+0");

}  // namespace

TEST(ConfigCheck, NamesWhatTheDaemonDoesOtherwise) {
    const std::string long_name(40, 'n');
    const struct {
        const char* what;
        std::string text;
        std::vector<std::string> found;  // a beginning of each finding, in order
        Status status;
    } cases[] = {
        {.what = "nothing",
         .text = "# client_name:\n" + whole + "#action dsm_tp+1\nnote it\n",
         .found = {"note 9 'note' is no field"},
         .status = CLEAN},
        {.what = "an empty file", .text = "", .found = {"- the file has no section"}, .status = WARNINGS},
        {.what = "first field",
         .text = "[x]\nclient_name a\n" + whole,
         .found = {"2 the section is skipped: its first field must be algo_type, not 'client_name'"},
         .status = WARNINGS},
        {.what = "unknown server",
         .text = "\n[x]\nalgo_type udp\n" + whole + "[y]\nalgo_type Listne\n",
         .found = {"3 the section is skipped: its algo_type 'udp' is neither listen nor poll",
                   "11 the section is skipped: its algo_type 'Listne' is neither listen nor poll; did you "
                   "mean listen?"},
         .status = WARNINGS},
        {.what = "a colon behind the first field",
         .text = "[x]\nalgo_type: listen\n" + whole,
         .found = {"2 the section is skipped: its first field must be algo_type; 'algo_type:' is no keyword; "
                   "write 'algo_type' without the colon"},
         .status = WARNINGS},
        {.what = "words that look like keywords",
         .text = whole + "client-name a\nalgotype a\nerror_number 1\nClient_Name=dsm_tp\nic_name= a\n",
         .found = {"7 the line is passed over: 'client-name' is no keyword; did you mean client_name?",
                   "8 the line is passed over: 'algotype' is no keyword; did you mean algo_type?",
                   "9 the line is passed over: 'error_number' is no keyword; did you mean error_no?",
                   "10 the line is passed over: 'Client_Name=dsm_tp' is no keyword; write 'client_name "
                   "dsm_tp'",
                   "11 the line is passed over: 'ic_name=' is no keyword; write 'ic_name' without the '='"},
         .status = WARNINGS},
        {.what = "a sign between keyword and value",
         .text = "[x]\nalgo_type : listen\n" + head + "device_name = panel\nnum_triggers 1\n" +
                 trigger(5, "dsm_tp+0"),
         .found = {"2 the section is skipped", "2 the ':' counts as a part of the value",
                   "2 algo_type takes the first word only", "6 the '=' counts as a part of the value",
                   "6 device_name takes the first word only"},
         .status = WARNINGS},
        {.what = "no server",
         .text = "[x]algo_type",
         .found = {"1 no value that can be read"},
         .status = WARNINGS},
        {.what = "empty section",
         .text = "[x]\n\n\n" + whole,
         .found = {"1 the section is empty"},
         .status = WARNINGS},
        {.what = "no such client",
         .text = "[x]\nalgo_type poll\nclient_name dsm_tq\nnum_triggers 1\n" + trigger(1, "Dsm_lcc+1"),
         .found =
             {"3 there is no client 'dsm_tq': section [x] watches nothing; did you mean dsm_tp?",
              "6 the action Dsm_lcc+1 does nothing: there is no client 'Dsm_lcc'; did you mean dsm_lcd?"},
         .status = WARNINGS},
        {.what = "slots",
         .text = head + "num_triggers 1\n" + trigger(5, "dsm_tp+0 dsm_tp+1 dsm_tp+10 dsm_tp+-1 nobody+0"),
         .found = {"6 the action dsm_tp+1 does nothing: dsm_tp has no dump slot 1",
                   "6 the action dsm_tp+10 does nothing: slots", "6 the action dsm_tp+-1 does nothing: slots",
                   "6 the action nobody+0 does nothing: there is no client"},
         .status = WARNINGS},
        {.what = "an error that stays",
         .text = head + "num_triggers 1\n" + trigger(5, "dsm_lcd+0"),
         .found = {"6 no action here takes the error out of dsm_tp"},
         .status = WARNINGS},
        {.what = "an incomplete trigger",
         .text = head + "num_triggers 2\n" + trigger(5, "dsm_tp+0") + "error_no 6\n",
         .found = {"4 num_triggers announces 2 triggers, but 1 is complete",
                   "7 the trigger of 6 has no action"},
         .status = WARNINGS},
        {.what = "two numbers and two switches for one action",
         .text = head + "num_triggers 1\nerror_no 4\nrunning_test_switch on\nrunning_test_switch off\n" +
                 trigger(5, "dsm_tp+0"),
         .found = {"5 error_no 4 has no action of its own: line 8",
                   "6 running_test_switch on has no action of its own: line 7"},
         .status = WARNINGS},
        {.what = "missing values",
         .text = "[x]\nalgo_type\nclient_name a\n" + head + "device_name\n# remark\nnum_triggers\n" +
                 trigger(5, "dsm_tp+0"),
         .found = {"2 algo_type takes 'client_name'", "2 the section is skipped",
                   "4 section [a] has no complete trigger", "7 device_name takes '#'",
                   "9 num_triggers takes 'error_no'", "9 num_triggers must be exactly one number"},
         .status = WARNINGS},
        {.what = "prose",
         .text = "Errors of all\nerrno 1\nAction is needed\n" + whole +
                 "Error numbers are mine\nDevice name of the panel\n",
         .found = {"note 1 ", "note 2 ", "note 3 a field outside", "note 3 'is'", "note 10 'Error'",
                   "note 11 'Device'"},
         .status = CLEAN},
        {.what = "other words for the keywords",
         .text = whole + "errno 1\nTest_Switch on\ndev_name b\ntrigger_num 2 # two\nError 5\n",
         .found =
             {"7 the line is passed over: 'errno' is no keyword; did you mean error_no?",
              "8 the line is passed over: 'Test_Switch' is no keyword; did you mean running_test_switch?",
              "9 the line is passed over: 'dev_name' is no keyword; did you mean device_name?",
              "10 the line is passed over: 'trigger_num' is no keyword; did you mean num_triggers?",
              "11 the line is passed over: 'Error' is no keyword; did you mean error_no?"},
         .status = WARNINGS},
        {.what = "a repetition without a server",
         .text = whole + "[a]\nalgo_type udp\n",
         .found = {"7 section [a] begins at line 1",
                   "8 the section is skipped: its algo_type 'udp' is neither listen nor poll; what "
                   "stands earlier of it has no effect either"},
         .status = WARNINGS},
        {.what = "a server without a name",
         .text = "[x]\nalgo_type\n\n" + whole,
         .found = {"2 no value that can be read"},
         .status = WARNINGS},
        {.what = "two servers, two names",
         .text = whole + poll_head + "device_name d\nsampling_period 12\nnum_triggers 1\n" +
                 trigger(1, "dsm_tp+0"),
         .found = {"7 section [b] and section [a] at line 1 name the device of dsm_tp differently"},
         .status = WARNINGS},
        {.what = "one device, two servers, one number",
         .text = whole + poll_head + "sampling_period 12\nnum_triggers 1\n" + trigger(5, "dsm_tp+0"),
         .found = {"12 the trigger at line 5, of dsm_tp, has the number 5 too"},
         .status = WARNINGS},
        {.what = "two devices, one number",
         .text = whole + "[b]\nalgo_type listen\nclient_name dsm_lcd\nnum_triggers 2\n" +
                 trigger(6, "dsm_lcd+0") + trigger(5, "dsm_lcd+0"),
         .found = {"13 the trigger at line 5, of dsm_tp, has the number 5 too"},
         .status = WARNINGS},
        {.what = "a period under a minute",
         .text = poll_head + "sampling_period 11\nnum_triggers 1\n" + trigger(1, "dsm_tp+0"),
         .found = {"1 section [b] samples every 55 s"},
         .status = WARNINGS},
        {.what = "the period of a section that gives none",
         .text = poll_head + "num_triggers 1\n" + trigger(1, "dsm_tp+0"),
         .found = {"1 section [b] samples every 25 s"},
         .status = WARNINGS},
        {.what = "long numbers",
         .text = head + "num_triggers 4\n" + trigger(99999, "dsm_tp+0") + trigger(100000, "dsm_tp+0") +
                 trigger(-9999, "dsm_tp+0") + trigger(-10000, "dsm_tp+0"),
         .found = {"7 archives of the number 100000 are neither counted nor deleted",
                   "11 archives of the number -10000 are"},
         .status = WARNINGS},
        {.what = "a period, a long number and a shared one, without a report",
         .text = poll_head + "num_triggers 2\n" + trigger(1, "dsm_lcd+1") + trigger(100000, "dsm_tp+1") +
                 "[audio]\nalgo_type listen\nclient_name dsm_audio\nnum_triggers 1\n" +
                 trigger(1, "dsm_audio+3"),
         .found = {"7 archives of the number 100000"},
         .status = WARNINGS},
        {.what = "a long number without an archive",
         .text = "[key]\nalgo_type listen\nclient_name dsm_power_key\nnum_triggers 1\n" +
                 trigger(100000, "dsm_power_key+1"),
         .found = {},
         .status = CLEAN},
        {.what = "a failed action keeps the one before",
         .text = head + "num_triggers 1\n" + trigger(5, "dsm_tp+0 dsm_tp+1") +
                 "[a]\nalgo_type listen\naction dsm_tp\n",
         .found = {"6 the action dsm_tp+1 does nothing", "7 section [a] begins at line 1",
                   "9 an action without", "9 not one valid action"},
         .status = WARNINGS},
        {.what = "more triggers than announced",
         .text = whole + trigger(6, "dsm_tp+0"),
         .found = {"7 num_triggers must come first and count all triggers"},
         .status = WARNINGS},
        {.what = "the same number again",
         .text = head + "num_triggers 2\n" + trigger(5, "dsm_tp+0") + trigger(5, "dsm_tp+0"),
         .found = {"7 a trigger of 5 stands earlier"},
         .status = WARNINGS},
        {.what = "fields twice",
         .text = whole + "client_name dsm_tp\nnum_triggers 1\n",
         .found = {"7 client_name stands in the section already",
                   "8 num_triggers stands in the section already", "8 section [a] has no complete trigger"},
         .status = WARNINGS},
        {.what = "a second num_triggers that fails",
         .text = whole + "num_triggers 1 2\n",
         .found = {"7 num_triggers must be exactly one number"},
         .status = WARNINGS},
        {.what = "the same client and server",
         .text = whole + "[b]" + whole.substr(3),
         .found = {"1 section [a] has no effect: section [b] at line 7"},
         .status = WARNINGS},
        {.what = "the same name",
         .text = whole + "[A]\nalgo_type listen\nclient_name dsm_lcd\n" + trigger(5, "dsm_lcd+0"),
         .found = {"7 section [a] begins at line 1"},
         .status = WARNINGS},
        {.what = "names",
         .text = head + "device_name " + long_name +
                 "\nic_name abcd\nmodule_name\nnum_triggers 1\nerror_no 5\n"
                 "running_test_switch often\naction dsm_tp+0\n",
         .found = {"1 section [a] has no complete trigger", "4 device_name '" + long_name + "' is cut off",
                   "5 ic_name 'abcd' is cut off to 'abc'",
                   "6 module_name takes 'num_triggers': its own value is missing",
                   "8 num_triggers must come first"},
         .status = WARNINGS},
        {.what = "words too many",
         .text = head + "num_triggers 1\nerror_no 5 6\nrunning_test_switch on off\naction dsm_tp+0+1\n",
         .found = {"5 error_no takes the first number only, '5'",
                   "6 running_test_switch takes the first word only", "7 of the action 'dsm_tp+0+1'"},
         .status = WARNINGS},
        {.what = "numbers",
         .text = head + "num_triggers 1.5\nerror_no 5e9\naction dsm_tp+0x\n",
         .found = {"4 num_triggers '1.5' counts as 1", "5 error_no '5e9' counts as 2147483647",
                   "5 archives of the number 2147483647 are", "6 slot '0x' counts as 0"},
         .status = WARNINGS},
        {.what = "actions",
         .text = head +
                 "num_triggers 1\nerror_no 5\naction dsm_tp dsm_tp+0 dsm_tp+0 dsm_tp+0 dsm_tp+0 dsm_tp+0 "
                 "dsm_tp+0 "
                 "dsm_tp+0 dsm_tp+0 dsm_tp+0\n",
         .found = {"6 an action without '+slot'", "6 only the first 8 actions count"},
         .status = WARNINGS},
        {.what = "misspelt, misplaced and missing",
         .text = "ic_name x\n" + whole + "num_trigger 2\nalgo_type poll\nsampling_period 5\ndevice_name",
         .found = {"1 a field outside the sections",
                   "8 the line is passed over: 'num_trigger' is no keyword; did you mean num_triggers?",
                   "9 algo_type counts as the first field", "10 sampling_period has no effect",
                   "11 device_name has no value", "note 1 'x' is no field"},
         .status = WARNINGS},
        {.what = "a bracket",
         .text = whole + "note [b] c\n",
         .found = {"7 a '[' inside a line begins a section, and", "7 the section is skipped",
                   "note 7 'note' is no field"},
         .status = WARNINGS},
        {.what = "no end of a name",
         .text = whole + "[b\n",
         .found = {"7 a '[' without a ']'"},
         .status = UNREADABLE},
        {.what = "a word without end",
         .text = "stray",
         .found = {"1 the word does not end"},
         .status = UNREADABLE},
        {.what = "a NUL byte",
         .text = whole + std::string("device_name a\0b\n", 16) + "[b]" + whole.substr(3),
         .found = {"1 section [a] has no effect", "7 no value that can be read", "7 a NUL byte"},
         .status = WARNINGS},
        {.what = "too long a file",
         .text = whole + std::string(MAX_CONFIG_BYTES, '\n'),
         .found = {"61364 the file has "},
         .status = WARNINGS},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        write_file(FILE_NAME, one.text);
        const Answer answer = run(std::string("--json ") + FILE_NAME);
        EXPECT_EQ(one.status, answer.status);
        const std::vector<std::string> found = findings_of(nlohmann::json::parse(answer.output));
        ASSERT_EQ(one.found.size(), found.size()) << answer.output;
        for (size_t i = 0; i < found.size(); ++i) {
            EXPECT_EQ(one.found[i], found[i].substr(0, one.found[i].size()));
        }
    }
}

TEST(ConfigCheck, ShowsTheSampleAsItActs) {
    const Answer answer = run("--json " + sample);
    const nlohmann::json document = nlohmann::json::parse(answer.output);
    EXPECT_EQ(CLEAN, answer.status) << document["warnings"];
    ASSERT_EQ(10u, document["sections"].size());
    const nlohmann::json& gauge = document["sections"][9];
    EXPECT_EQ("poll", gauge["server"]);
    EXPECT_EQ(60, gauge["period_s"]);
    EXPECT_EQ(2, gauge["triggers"][1]["number"]);
    // A poll section runs force dumps, a listen section dumps.
    EXPECT_EQ("dsm_force_dump_error", gauge["triggers"][1]["actions"][0]["operation"]);
    EXPECT_EQ("charge_dump_error", document["sections"][3]["triggers"][0]["actions"][0]["operation"]);
}

TEST(ConfigCheck, PrintsAsAsked) {
    write_file(FILE_NAME, "text\n" + head + "num_triggers 1\n" + trigger(5, "dsm_tp+0 dsm_tp+3"));
    const std::string warning = "/tmp/a.conf:7: warning: the action dsm_tp+3 does nothing";
    const struct {
        const char* options;
        std::vector<std::string> parts;  // of the output, the first at its beginning
        bool tells_note;
    } cases[] = {
        {.options = "",
         .parts = {"[a]  line 2\n  client   dsm_tp, listened to\n", "error    5\n", warning,
                   "1 section, 1 in force, 1 warning\n"},
         .tells_note = true},
        {.options = "--warnings", .parts = {warning}, .tells_note = false},
        {.options = "--tsv",
         .parts = {"section\t2\ta\tlisten\tdsm_tp\tin-force\t0\t\t\t\n", "trigger\t6\t5\t\tfires\n",
                   "action\t6\tdsm_tp+0\tdsm_dump_error\treport\n",
                   "action\t6\tdsm_tp+3\t\tdsm_tp has no dump slot 3\n", "warning\t7\t"},
         .tells_note = true},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.options);
        const Answer answer = run(std::string(FILE_NAME) + " " + one.options);
        EXPECT_EQ(WARNINGS, answer.status);
        EXPECT_EQ(0u, answer.output.find(one.parts[0])) << answer.output;
        for (const std::string& part : one.parts) {
            EXPECT_NE(std::string::npos, answer.output.find(part)) << part << answer.output;
        }
        EXPECT_EQ(one.tells_note, answer.output.find("'text' is no field") != std::string::npos);
    }
    EXPECT_EQ("", run(sample + " --warnings").output);
    const nlohmann::json document = nlohmann::json::parse(run(std::string("--json ") + FILE_NAME).output);
    const nlohmann::json& actions = document["sections"][0]["triggers"][0]["actions"];
    EXPECT_EQ("dsm_tp has no dump slot 3", actions[1]["why_nothing"]);
}

TEST(ConfigCheck, ColoursATerminalUnlessToldNotTo) {
    const tools::CheckedConfig config = tools::check_config(sample);
    EXPECT_NE(std::string::npos, format_config({true, true}, config).find("\033[1m[fuel gauge]"));
    EXPECT_EQ(std::string::npos, format_config({true, false}, config).find('\033'));
}

TEST(ConfigCheck, ExplainsEachKindOfOperation) {
    const std::string listen = "algo_type listen\nclient_name ";
    write_file(FILE_NAME,
               "[tp]\n" + listen + "dsm_tp\ndevice_name panel\nnum_triggers 3\n" + trigger(1, "dsm_tp+0") +
                   trigger(2, "dsm_lcd+0 dsm_tp+7") + trigger(3, "dsm_tp+0 DSM_TP+0") +
                   "[tp polled]\nalgo_type poll\nclient_name dsm_tp\ndevice_name panel\nsampling_period 12\n"
                   "num_triggers 2\n" +
                   trigger(1, "dsm_tp+0") + trigger(0, "dsm_tp+1") +  //
                   "[apcp]\n" + listen + "dsm_apcp\nnum_triggers 2\n" + trigger(20834, "dsm_apcp+0") +
                   trigger(20835, "dsm_apcp+0") +  //
                   "[key]\n" + listen + "dsm_power_key\nnum_triggers 1\n" + trigger(5, "dsm_power_key+1") +
                   "[audio]\n" + listen + "dsm_audio\nnum_triggers 1\n" +
                   trigger(5, "dsm_audio+0 dsm_audio+4") +  //
                   "[hub]\n" + listen + "dsm_sensorhub\nnum_triggers 1\n" + trigger(6, "dsm_sensorhub+0"));
    const struct {
        const char* asked;
        std::vector<std::string> told;  // in this order
    } cases[] = {
        {.asked = "DSM_TP 1",
         .told = {"Error 1 of dsm_tp: section [tp], line 6 ", "\"dsm_tp has error (1) reported\"",
                  "reads the error's text out of dsm_tp, up to 1024 bytes", "debug build packs the record",
                  "commercial build hands", "1 once a day only", "Action 1 takes the error out of the driver",
                  "device panel", "State 1 of dsm_tp: section [tp polled]", "Every 60 seconds", "dump for 1",
                  "device is always dsm_tp", "every sample"}},
        {.asked = "dsm_tp 2",
         .told = {"an error that dsm_lcd happens to have", "nothing dsm_tp has no dump slot 7",
                  "No action takes the error out", "Names for dsm_lcd: none, as no section watches it",
                  "State 2 of dsm_tp: no trigger of section [tp polled]"}},
        {.asked = "dsm_tp 3",
         .told = {"out of dsm_tp", "a further error of dsm_tp", "(action 1 has the text of this one)",
                  "begun in the same second as action 1, it has no archive", "unless action 1 did so",
                  "Running test switch: none"}},
        {.asked = "dsm_tp 0",
         .told = {"has error (0) ignored\", and clears it", "If that is 0", "shows touches",
                  "refuses to tell counts as 0"}},
        {.asked = "dsm_apcp 20834", .told = {"what there is of /data/tombstones/"}},
        {.asked = "dsm_apcp 20835", .told = {"packs the record file and the system's logs; hands"}},
        {.asked = "dsm_power_key 5",
         .told = {"a report without the list", "debug build hands the record file",
                  "A trigger of dsm_audio has the number too (section [audio], line 40)"}},
        {.asked = "dsm_audio 5",
         .told = {"writes the codec's registers", "commercial build nothing", "waits 5 seconds",
                  "what there is of hifi.log of a folder", "last removes /data/zc8830dump.log",
                  "Action 2 takes"}},
        {.asked = "dsm_sensorhub 6", .told = {"10485760 bytes", "waits 10 seconds", "rdr.bin"}},
        {.asked = "dsm_wifi -1", .told = {"Error -1 of dsm_wifi: no listen section", "Nobody watches"}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.asked);
        const Answer answer = run(std::string("--explain ") + one.asked + " " + FILE_NAME);
        EXPECT_EQ(WARNINGS, answer.status);
        const std::string told = std::regex_replace(answer.output, std::regex("[ \n]+"), " ");
        size_t at = 0;
        for (const std::string& part : one.told) {
            at = told.find(part, at);
            ASSERT_NE(std::string::npos, at) << part << "\n" << answer.output;
        }
    }
}

TEST(ConfigCheck, ListsTheClientsOfTheDaemon) {
    const std::string lines = run("--clients --tsv").output;
    const nlohmann::json clients = nlohmann::json::parse(run("--clients --json").output)["clients"];
    size_t place = 0;
    for (const dmd_client_info& row : default_clients) {
        EXPECT_EQ(row.name, clients[place]["name"]);
        EXPECT_EQ(row.buffer_size, clients[place]["bytes"]);
        ++place;
        for (int slot = 0; slot < SLOT_COUNT; ++slot) {
            const std::string line = std::string("\n") + row.name + "\t" + std::to_string(row.buffer_size) +
                                     "\tdump\t" + std::to_string(slot) + "\t";
            EXPECT_EQ(row.dump[slot] != nullptr, lines.find(line) != std::string::npos) << line;
        }
    }
    EXPECT_EQ(place, clients.size());
    EXPECT_NE(std::string::npos, run("--clients").output.find("removes /data/zc8830dump.log"));
}

// Each kind of dump is run, and has read, waited and written what is said of it.
TEST(ConfigCheck, SaysOfDumpsWhatTheyDo) {
    set_commercial(false);
    ASSERT_EQ(0, dmd_client_init());
    std::set<client_dump_operation> done;
    for (const dmd_client_info& row : default_clients) {
        for (int slot = 0; slot < SLOT_COUNT; ++slot) {
            if (row.dump[slot] == nullptr || !done.insert(row.dump[slot]).second) {
                continue;
            }
            const tools::OperationFacts& facts = tools::facts_of(row.dump[slot]);
            SCOPED_TRACE(facts.name);
            phone_do({"reset"});
            report_error(row.name, 7, "text");
            dmd_client* const client = get_client_by_name(row.name);
            const unsigned int texts_read = client->texts_read;
            const unsigned int slept = seconds_slept();
            const size_t recorded = read_file(record_path(0)).size();
            dmd_dump_error(client, 7, slot, "on");
            EXPECT_EQ(facts.reads == tools::Reads::ERROR, client->texts_read != texts_read);
            EXPECT_TRUE(facts.waits.empty() ||
                        facts.waits.find(std::to_string(seconds_slept() - slept) + " seconds") == 0);
            const std::string report = read_file(record_path(0)).substr(recorded);
            EXPECT_EQ(facts.report != tools::Report::NONE, !report.empty());
            EXPECT_EQ(facts.report == tools::Report::FULL, report.find("[Process]") != std::string::npos);
            const bool archived = system(("rm " + std::string(LOG_DIR) + "/*.tar.gz").c_str()) == 0;
            EXPECT_EQ(facts.report == tools::Report::FULL, archived);
        }
    }
}

TEST(ConfigCheck, RefusesFilesAndOptionsThatItCannotUse) {
    ASSERT_EQ(0, mkfifo("/tmp/pipe", 0600));
    for (const char* arguments : {"/tmp/none", "/tmp", "/tmp/pipe", "", "--wrong", "/tmp/a /tmp/b",
                                  "--explain dsm_tp 5", "/tmp/none --explain dsm_tp 5"}) {
        const Answer answer = run(arguments);
        EXPECT_EQ(UNREADABLE, answer.status) << arguments;
        EXPECT_NE("", answer.output) << arguments;
    }
    const struct {
        const char* asked;
        const char* answer;
    } cases[] = {
        {.asked = "dsm_tpp 5", .answer = "dmd-config-check: no client dsm_tpp; did you mean dsm_tp?\n"},
        {.asked = "thermometer 5",
         .answer = "dmd-config-check: no client thermometer; dmd-config-check --clients lists "},
        {.asked = "dsm_tp 5x", .answer = "dmd-config-check: 5x is no error number\n"},
    };
    for (const auto& one : cases) {
        const Answer answer = run(sample + " --explain " + one.asked);
        EXPECT_EQ(UNREADABLE, answer.status);
        EXPECT_EQ(0U, answer.output.find(one.answer)) << answer.output;
    }
}

TEST(ConfigCheck, TellsHowToUseIt) {
    EXPECT_EQ(CLEAN, run("--help").status);
    EXPECT_EQ(0u, run("--complete --explain ''").output.find("dsm_tp\n"));
    EXPECT_EQ(":files\n", run("--complete --explain dsm_tp 5 ''").output);
}

TEST(ConfigCheck, SaysThatItCannotWrite) {
    const int status = system((tool + " " + sample + " > /dev/full").c_str());
    EXPECT_EQ(UNREADABLE, WEXITSTATUS(status));
}

TEST(ConfigCheck, KnowsEveryOperation) {
    for (const dmd_client_info& row : default_clients) {
        for (int slot = 0; slot < SLOT_COUNT; ++slot) {
            for (const client_dump_operation operation : {row.dump[slot], row.force_dump[slot]}) {
                EXPECT_TRUE(operation == nullptr || tools::facts_of(operation).operation == operation)
                    << row.name << " " << slot;
            }
        }
    }
}
