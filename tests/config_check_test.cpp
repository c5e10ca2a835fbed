// dmd-config-check: what it says of configurations, good and bad.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "clients/client_table.h"
#include "config/config_parser.h"
#include "emulator/phone.h"
#include "tests/phone_test.h"
#include "tools/config_check.h"
#include "tools/config_print.h"
#include "tools/operation_names.h"

namespace {

constexpr char FILE_NAME[] = "/tmp/a.conf";
// A sanitizer cannot look for leaks in a process that the phone does not show by number.
const std::string tool = "ASAN_OPTIONS=detect_leaks=0 " + std::string(phone::BUILD_DIR) + "/dmd-config-check";

// Runs the tool; its output, and its exit status in *status.
std::string run(const std::string& arguments, int* status) {
    const std::string output = output_of("{ " + tool + " " + arguments + "; echo $? > /tmp/status; } 2>&1");
    *status = atoi(read_file("/tmp/status").c_str());
    return output;
}

// The findings of a text: their kind, line and text.
std::string findings_of(const std::string& text, int* status) {
    write_file(FILE_NAME, text);
    const nlohmann::json document = nlohmann::json::parse(run(std::string("--json ") + FILE_NAME, status));
    std::string found;
    for (const char* kind : {"warnings", "notes"}) {
        for (const auto& finding : document[kind]) {
            found += (*kind == 'n' ? "note " : "") +
                     (finding["line"].is_null() ? "-" : std::to_string(finding["line"].get<int>())) + " " +
                     finding["text"].get<std::string>() + "\n";
        }
    }
    return found;
}

std::string trigger(int number, const std::string& action) {
    return "error_no " + std::to_string(number) + "\naction " + action + "\n";
}

const std::string head = "[a]\nalgo_type listen\nclient_name dsm_tp\n";
const std::string whole = head + "num_triggers 1\n" + trigger(5, "dsm_tp+0");

}  // namespace

TEST(ConfigCheck, NamesWhatTheDaemonDoesOtherwise) {
    const std::string long_name(40, 'n');
    const struct {
        const char* what;
        std::string text;
        std::vector<std::string> found;  // a beginning of each finding, in order
        int status;
    } cases[] = {
        {"nothing", whole + "# a comment\n", {"note 7 \"#\" is no field"}, 0},
        {"an empty file", "", {"- the file has no section"}, 1},
        {"first field", "[x]\nclient_name a\n" + whole, {"2 the section is skipped: its first field"}, 1},
        {"unknown server", "\n[x]\nalgo_type udp\n" + whole, {"3 the section is skipped: its algo_type"}, 1},
        {"no server", "[x]algo_type", {"1 no value that can be read"}, 1},
        {"empty section", "[x]\n\n\n" + whole, {"1 the section is empty"}, 1},
        {"no such client",
         "[x]\nalgo_type poll\nclient_name dsm_tq\nnum_triggers 1\n" + trigger(1, "dsm_lcd+1"),
         {"3 there is no client \"dsm_tq\": section [x] watches nothing"},
         1},
        {"slots",
         head + "num_triggers 1\n" + trigger(5, "dsm_tp+0 dsm_tp+1 dsm_tp+10 dsm_tp+-1 nobody+0"),
         {"6 the action dsm_tp+1 does nothing: dsm_tp has no dump slot 1",
          "6 the action dsm_tp+10 does nothing: slots", "6 the action dsm_tp+-1 does nothing: slots",
          "6 the action nobody+0 does nothing: there is no client"},
         1},
        {"an error that stays",
         head + "num_triggers 1\n" + trigger(5, "dsm_lcd+0"),
         {"6 no action here takes the error out of dsm_tp"},
         1},
        {"an incomplete trigger",
         head + "num_triggers 2\n" + trigger(5, "dsm_tp+0") + "error_no 6\n",
         {"4 num_triggers announces 2 triggers, but 1 is complete", "7 the trigger of 6 has no action"},
         1},
        {"two numbers for one action",
         head + "num_triggers 1\nerror_no 4\n" + trigger(5, "dsm_tp+0"),
         {"5 error_no 4 has no action of its own: line 6"},
         1},
        {"a server without a name", "[x]\nalgo_type\n\n" + whole, {"2 no value that can be read"}, 1},
        {"two servers, two names",
         whole + "[b]\nalgo_type poll\nclient_name dsm_tp\ndevice_name d\nnum_triggers 1\n" +
             trigger(1, "dsm_tp+0"),
         {"7 section [b] and section [a] at line 1 name the device of dsm_tp differently"},
         1},
        {"a failed action keeps the one before",
         head + "num_triggers 1\n" + trigger(5, "dsm_tp+0 dsm_tp+1") +
             "[a]\nalgo_type listen\naction dsm_tp\n",
         {"6 the action dsm_tp+1 does nothing", "7 section [a] begins at line 1", "9 an action without",
          "9 not one valid action"},
         1},
        {"more triggers than announced",
         whole + trigger(6, "dsm_tp+0"),
         {"7 num_triggers must come first and count all triggers"},
         1},
        {"the same number again",
         head + "num_triggers 2\n" + trigger(5, "dsm_tp+0") + trigger(5, "dsm_tp+0"),
         {"7 a trigger of 5 stands earlier"},
         1},
        {"fields twice",
         whole + "client_name dsm_tp\nnum_triggers 1\n",
         {"7 client_name stands in the section already", "8 num_triggers stands in the section already",
          "8 section [a] has no complete trigger"},
         1},
        {"a second num_triggers that fails",
         whole + "num_triggers 1 2\n",
         {"7 num_triggers must be exactly one number"},
         1},
        {"the same client and server",
         whole + "[b]" + whole.substr(3),
         {"1 section [a] has no effect: section [b] at line 7"},
         1},
        {"the same name",
         whole + "[A]\nalgo_type listen\nclient_name dsm_lcd\n" + trigger(5, "dsm_lcd+0"),
         {"7 section [a] begins at line 1"},
         1},
        {"names",
         head + "device_name " + long_name +
             "\nic_name abcd\nmodule_name\nnum_triggers 1\nerror_no 5\n"
             "running_test_switch often\naction dsm_tp+0\n",
         {"1 section [a] has no complete trigger", "4 device_name \"" + long_name + "\" is cut off",
          "5 ic_name \"abcd\" is cut off to \"abc\"", "7 module_name takes the word \"num_triggers\"",
          "8 num_triggers must come first"},
         1},
        {"words too many",
         head + "num_triggers 1\nerror_no 5 6\nrunning_test_switch on off\naction dsm_tp+0+1\n",
         {"5 error_no takes the first number only, \"5\"", "6 running_test_switch takes the first word only",
          "7 of the action \"dsm_tp+0+1\""},
         1},
        {"numbers",
         head + "num_triggers 1.5\nerror_no 5e9\naction dsm_tp+0x\n",
         {"4 num_triggers \"1.5\" counts as 1", "5 error_no \"5e9\" counts as 2147483647",
          "6 slot \"0x\" counts as 0"},
         1},
        {"actions",
         head + "num_triggers 1\nerror_no 5\naction dsm_tp dsm_tp+0 dsm_tp+0 dsm_tp+0 dsm_tp+0 dsm_tp+0 "
                "dsm_tp+0 "
                "dsm_tp+0 dsm_tp+0 dsm_tp+0\n",
         {"6 an action without \"+slot\"", "6 only the first 8 actions count"},
         1},
        {"misspelt, misplaced and missing",
         "ic_name x\n" + whole + "num_trigger 2\nalgo_type poll\nsampling_period 5\ndevice_name",
         {"1 a field outside the sections",
          "8 \"num_trigger\" is no field, and its line is passed over; is num_triggers",
          "9 algo_type counts as the first field", "10 sampling_period has no effect",
          "11 device_name has no value", "note 1 \"x\" is no field"},
         1},
        {"a bracket",
         whole + "note [b] c\n",
         {"7 a \"[\" inside a line begins a section, and", "7 the section is skipped",
          "note 7 \"note\" is no field"},
         1},
        {"no end of a name", whole + "[b\n", {"7 a \"[\" without a \"]\""}, 2},
        {"a word without end", "stray", {"1 the word does not end"}, 2},
        {"a NUL byte",
         whole + std::string("device_name a\0b\n", 16) + "[b]" + whole.substr(3),
         {"1 section [a] has no effect", "7 no value that can be read", "7 a NUL byte"},
         1},
        {"too long a file", whole + std::string(MAX_CONFIG_BYTES, '\n'), {"61364 the file has "}, 1},
    };
    for (const auto& one : cases) {
        int status = -1;
        const std::string found = findings_of(one.text, &status);
        EXPECT_EQ(one.status, status) << one.what;
        size_t at = 0;
        for (const std::string& expected : one.found) {
            EXPECT_EQ(0, found.compare(at, expected.size(), expected)) << one.what << ": " << expected << "\n"
                                                                       << found;
            at = found.find('\n', at) + 1;
        }
        EXPECT_EQ(found.size(), at) << one.what << "\n" << found;
    }
}

TEST(ConfigCheck, ShowsTheSampleAsItActs) {
    int status = -1;
    const std::string sample = std::string(phone::BUILD_DIR) + "/device_state_monitor.conf";
    const nlohmann::json document = nlohmann::json::parse(run("--json " + sample, &status));
    EXPECT_EQ(0, status) << document["warnings"];
    ASSERT_EQ(10u, document["sections"].size());
    const nlohmann::json& gauge = document["sections"][9];
    EXPECT_EQ("poll", gauge["server"]);
    EXPECT_EQ(60, gauge["period_s"]);
    EXPECT_EQ(2, gauge["triggers"][1]["number"]);
    // A poll section runs force dumps, a listen section dumps.
    EXPECT_EQ("dsm_force_dump_error", gauge["triggers"][1]["actions"][0]["operation"]);
    EXPECT_EQ("charge_dump_error", document["sections"][3]["triggers"][0]["actions"][0]["operation"]);
    // Tabs for programs, colours and blocks for people.
    EXPECT_EQ(
        0u,
        run(sample, &status).find("section\t1\ttouch\tlisten\tdsm_tp\tin-force\t0\ttouch_panel\tsyn\tofl\n"));
    const tools::CheckedConfig config = tools::check_config(sample);
    EXPECT_NE(std::string::npos, format_config({true, true}, config).find("\033[1m[fuel gauge]"));
    const std::string plain = format_config({true, false}, config);
    EXPECT_NE(std::string::npos, plain.find("client   dsm_pmu_coul, polled every 60 s\n")) << plain;
    EXPECT_EQ(std::string::npos, plain.find('\033'));
}

TEST(ConfigCheck, RefusesWhatCannotBeRead) {
    int status = 0;
    output_of("mkfifo /tmp/pipe");
    for (const char* arguments : {"/tmp/none", "/tmp", "/tmp/pipe", "", "--wrong", "/tmp/a /tmp/b"}) {
        EXPECT_NE("", run(arguments, &status)) << arguments;
        EXPECT_EQ(2, status) << arguments;
    }
    EXPECT_EQ(2, system((tool + " " + FILE_NAME + " > /dev/full").c_str()) >> 8);
    run("--help", &status);
    EXPECT_EQ(0, status);
}

TEST(ConfigCheck, KnowsEveryOperation) {
    for (const dmd_client_info& row : default_clients) {
        for (int slot = 0; slot < SLOT_COUNT; ++slot) {
            for (const client_dump_operation operation : {row.dump[slot], row.force_dump[slot]}) {
                EXPECT_TRUE(operation == nullptr || tools::name_operation(operation).operation == operation)
                    << row.name << " " << slot;
            }
        }
    }
}
