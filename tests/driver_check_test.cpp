// dmd-driver-check: what it says of drivers, good and bad.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "clients/client_table.h"
#include "emulator/phone.h"
#include "tests/phone_test.h"

namespace {

// A sanitizer cannot look for leaks in a process that the phone does not show by number.
const std::string program =
    "ASAN_OPTIONS=detect_leaks=0 " + std::string(phone::BUILD_DIR) + "/dmd-driver-check ";

enum Status { CONFORMING = 0, DEVIATING = 1, UNUSABLE = 2 };

struct Answer {
    int status;
    std::vector<std::string> lines;
};

Answer run(const std::string& arguments, const std::string& before = "") {
    const int status = system((before + program + arguments + " > /tmp/output 2>&1").c_str());
    Answer answer = {WEXITSTATUS(status), {}};
    std::istringstream output(read_file("/tmp/output"));
    for (std::string line; std::getline(output, line);) {
        answer.lines.push_back(line);
    }
    return answer;
}

using Requests = std::vector<std::vector<std::string>>;

const std::vector<std::string> PENDING = {"report", "dsm_tp", "20002", "two\nlines"};

}  // namespace

TEST(DriverCheck, NamesEachDeviationAndWhatItCosts) {
    const std::string warning = "dsm_tp: warning: ";
    const struct {
        const char* what;
        Requests driver;
        std::string options;
        std::vector<std::string> lines;  // a beginning of each that is not of the summary, in order
        Status status;
    } cases[] = {
        {.what = "nothing", .driver = {}, .options = "", .lines = {}, .status = CONFORMING},
        {.what = "names that fill their fields, and a line end behind a number",
         .driver = {{"names", "dsm_tp", std::string(31, 'd'), "MODU", "ICXY"},
                    {"answer-text", "dsm_tp", "state", "-7\n"}},
         .options = "",
         .lines = {},
         .status = CONFORMING},
        {.what = "an unknown name is bound",
         .driver = {{"client", "dmd-driver-check"}},
         .options = "",
         .lines = {"driver: warning: binds dmd-driver-check, which is no client: dmd cannot tell"},
         .status = DEVIATING},
        {.what = "only the beginning of a name is compared",
         .driver = {{"client", "dsm_tp" + std::string(26, '_')}},
         .options = "",
         .lines = {warning + "binds dsm_tp" + std::string(26, '_') + " too, which is no client"},
         .status = DEVIATING},
        {.what = "a name is compared as far as it goes",
         .driver = {{"client", "dsm_t"}},
         .options = "",
         .lines = {warning + "binds dsm_t too, which is no client: where one name begins another, dmd"},
         .status = DEVIATING},
        {.what = "no compat_ioctl",
         .driver = {{"answer", "*", "bind", "-25"}},
         .options = "",
         .lines = {"driver: warning: does not know the request bind, 0xc02078f1: dmd has no client. If dmd",
                   "dsm_tp: not there: bind fails - Inappropriate ioctl for device, and dmd leaves"},
         .status = DEVIATING},
        {.what = "a positive refusal",
         .driver = {{"answer", "dsm_tp", "bind", "7"}},
         .options = "",
         .lines = {warning + "bind of descriptor 1 returns 7: dmd leaves the client out"},
         .status = DEVIATING},
        {.what = "a client that is not there",
         .driver = {{"answer", "dsm_tp", "bind", "-22"}},
         .options = "",
         .lines = {"dsm_tp: not there: bind fails - Invalid argument, and dmd leaves the client out"},
         .status = CONFORMING},
        {.what = "no state",
         .driver = {{"answer", "dsm_tp", "state", "-5"}},
         .options = "",
         .lines =
             {"dsm_tp: get state fails - Input/output error: dmd logs it and goes on with 0, if it polls"},
         .status = CONFORMING},
        {.what = "a state that is no number",
         .driver = {{"answer-text", "dsm_tp", "state", "12 V"}},
         .options = "",
         .lines =
             {"dsm_tp: get state answers \"12 V\", no decimal number of 32 bits: dmd makes 12 of it, if"},
         .status = CONFORMING},
        {.what = "no error number while there is no error",
         .driver = {{"answer", "dsm_tp", "error", "-61"}},
         .options = "",
         .lines = {},
         .status = CONFORMING},
        {.what = "the number of the last error",
         .driver = {{"answer-text", "dsm_tp", "error", "20002"}},
         .options = "--drain",
         .lines = {},
         .status = CONFORMING},
        {.what = "an error number that is hexadecimal",
         .driver = {PENDING, {"answer-text", "dsm_tp", "error", "0x4e22"}},
         .options = "",
         .lines = {warning + "get error answers \"0x4e22\", no decimal number of 32 bits: dmd makes 0 of it",
                   warning + "is readable, but get error tells no number: dmd logs"},
         .status = DEVIATING},
        {.what = "an error number of more than 32 bits",
         .driver = {PENDING, {"answer-text", "dsm_tp", "error", "2147483648"}},
         .options = "",
         .lines = {warning + "get error answers \"2147483648\", no decimal number of 32 bits"},
         .status = DEVIATING},
        {.what = "a positive result where a name is not known",
         .driver = {{"answer", "dsm_tp", "device_name", "1"}},
         .options = "",
         .lines = {warning + "get device name returns 1: dmd leaves the name empty"},
         .status = DEVIATING},
        {.what = "names that are too long",
         .driver = {{"names", "dsm_tp", std::string(32, 'd'), "MODUL", "IC"}},
         .options = "",
         .lines = {warning + "get device name answers \"" + std::string(32, 'd') +
                       "\": dmd keeps the first 31",
                   warning + "get module name answers \"MODUL\": dmd keeps the first 4 characters"},
         .status = DEVIATING},
        {.what = "readable with nothing pending",
         .driver = {{"fault", "dsm_tp", "always-readable"}},
         .options = "--drain",
         .lines = {warning + "is readable, but get error tells no number: dmd logs \"dsm_tp has error (0) ig",
                   warning + "is readable, but a read returns 0: dmd logs it if the number has a trigger"},
         .status = DEVIATING},
        {.what = "never readable",
         .driver = {PENDING, {"fault", "dsm_tp", "never-readable"}},
         .options = "",
         .lines = {"dsm_tp: tells error 20002, but is not readable: if it is pending, dmd never reads it"},
         .status = CONFORMING},
        {.what = "readable on one descriptor, and no number",
         .driver = {PENDING, {"fault", "dsm_tp", "one-readable"}, {"answer-text", "dsm_tp", "error", "0"}},
         .options = "",
         .lines = {warning + "is readable on some of its three descriptors only: dmd waits at the second"},
         .status = DEVIATING},
        {.what = "an interrupted open, read and request",
         .driver = {{"answer", "*", "open", "-4", "3"},
                    {"answer", "dsm_tp", "read", "-4", "100"},
                    {"answer", "dsm_tp", "state", "-4", "3"}},
         .options = "",
         .lines = {},
         .status = CONFORMING},
        {.what = "a failing read of nothing",
         .driver = {{"answer", "dsm_tp", "read", "-11"}},
         .options = "",
         .lines = {warning +
                   "a read with nothing pending fails - Resource temporarily unavailable, and should"},
         .status = DEVIATING},
        {.what = "a read that waits",
         .driver = {{"fault", "dsm_tp", "read-waits"}},
         .options = "",
         .lines = {warning + "a read with nothing pending does not return within 5 s: dmd loses the thread"},
         .status = DEVIATING},
        {.what = "a failing read of an error",
         .driver = {PENDING, {"answer", "dsm_tp", "read", "-5"}},
         .options = "--drain",
         .lines = {warning +
                   "is readable, but a read fails - Input/output error: dmd logs it if the number has a"},
         .status = DEVIATING},
        {.what = "a forced dump while an error is pending",
         .driver = {PENDING},
         .options = "--force 9",
         .lines = {"dsm_tp: not tried: a forced dump, because its read could take what is pending (--drain)"},
         .status = CONFORMING},
        {.what = "a forced dump",
         .driver = {},
         .options = "--force -20005",
         .lines = {"dsm_tp: forced dump of -20005, 38 bytes: \"forced dump of error -20005 of dsm_tp.\""},
         .status = CONFORMING},
        {.what = "a refused forced dump",
         .driver = {{"answer", "dsm_tp", "force", "-22"}},
         .options = "--force 1",
         .lines = {"dsm_tp: force dump of 1 fails - Invalid argument: dmd logs it and makes no report"},
         .status = CONFORMING},
        {.what = "a forced dump that wakes others",
         .driver = {{"fault", "dsm_tp", "force-readable"}},
         .options = "--force 1",
         .lines = {"dsm_tp: forced dump of 1, 33 bytes: ", "dsm_tp: forced dump of 1, 33 bytes: ",
                   warning +
                       "a forced dump makes the client readable, or changes what get error tells, until"},
         .status = DEVIATING},
        {.what = "a forced dump without a text",
         .driver = {{"force-text", "dsm_tp", ""}},
         .options = "--force 1",
         .lines = {warning + "a forced dump succeeds, but the read after it returns 0: dmd makes no report"},
         .status = DEVIATING},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        phone_do({"reset"});
        for (const auto& request : c.driver) {
            phone_do(request);
        }
        const std::string before = phone_do({"pending", "dsm_tp"});
        const Answer answer = run(c.options + " dsm_tp");
        EXPECT_EQ(c.status, answer.status);
        std::vector<std::string> lines;
        for (const std::string& line : answer.lines) {
            if (line.find("dsm_tp: ") == 0 || line.find("driver: ") == 0) {
                const size_t at = lines.size();
                lines.push_back(at < c.lines.size() ? line.substr(0, c.lines[at].size()) : line);
            }
        }
        EXPECT_EQ(c.lines, lines) << read_file("/tmp/output");
        EXPECT_EQ(before, phone_do({"pending", "dsm_tp"})) << "nothing was lost";
    }
}

TEST(DriverCheck, DrainsOnlyWhenToldTo) {
    report_error("dsm_tp", 20002, "two\nlines");
    report_error("dsm_tp", -5, std::string(1025, 'x'));
    report_error("dsm_lcd", 1, "not asked for");
    EXPECT_EQ("2", phone_do({"pending", "dsm_tp"}));
    const Answer drained = run("--drain dsm_tp");
    EXPECT_EQ(CONFORMING, drained.status);
    ASSERT_LE(2U, drained.lines.size());
    EXPECT_EQ((std::vector<std::string>{
                  "dsm_tp: took error 20002, 9 bytes: \"two.lines\"",
                  "dsm_tp: took error -5, 1024 bytes: \"" + std::string(63, 'x') + "\"",
              }),
              std::vector<std::string>(drained.lines.begin(), drained.lines.begin() + 2));
    EXPECT_EQ("0", phone_do({"pending", "dsm_tp"}));
    EXPECT_EQ("1", phone_do({"pending", "dsm_lcd"}));

    report_error("dsm_tp", 20002, "in the way");
    phone_do({"fault", "dsm_tp", "force-last"});
    const std::vector<std::string> forced = run("--drain --force 7 dsm_tp").lines;
    ASSERT_LE(2U, forced.size());
    EXPECT_EQ((std::vector<std::string>{
                  "dsm_tp: forced dump of 7, 10 bytes: \"in the way\"",
                  "dsm_tp: warning: the read after a forced dump drops a pending error: dmd reports that "
                  "error's text as the dump, and never the error",
              }),
              std::vector<std::string>(forced.begin(), forced.begin() + 2));

    phone_do({"reset"});
    for (int i = 0; i < 150; ++i) {
        report_error("dsm_tp", 20002, "different every time: " + std::to_string(i));
    }
    EXPECT_EQ(CONFORMING, run("--drain dsm_tp").status);
    EXPECT_EQ("0", phone_do({"pending", "dsm_tp"}));

    report_error("dsm_tp", 31000, "never seen");
    phone_do({"fault", "dsm_tp", "never-readable"});
    const Answer hidden = run("--drain dsm_tp");
    EXPECT_EQ(DEVIATING, hidden.status);
    EXPECT_EQ(0U,
              hidden.lines.at(0).find("dsm_tp: warning: error 31000 was pending, 10 bytes: \"never seen\""));

    report_error("dsm_tp", 20002, "again and again");
    phone_do({"fault", "dsm_tp", "read-keeps"});
    const Answer endless = run("--drain dsm_tp");
    EXPECT_EQ(DEVIATING, endless.status);
    EXPECT_EQ(0U,
              endless.lines.at(100).find("dsm_tp: warning: is still readable after the same text 100 times"));
}

TEST(DriverCheck, TellsOfAllClientsAndOfWhatIsMissing) {
    phone_do({"answer", "dsm_lcd", "bind", "-22"});
    phone_do({"answer", "dsm_key", "device_name", "1"});
    const Answer all = run("");
    EXPECT_EQ(DEVIATING, all.status);
    const std::string conforming = std::to_string(default_clients.count - 2);
    EXPECT_EQ(
        (std::vector<std::string>{
            "dsm_lcd: not there: bind fails - Invalid argument, and dmd leaves the client out",
            "dsm_key: warning: get device name returns 1: dmd leaves the name empty, where a negative errno "
            "would make it take the name in the configuration",
            "not tried: what the driver does while an error is pending; there was none",
            "not tried: forced dumps, because they may disturb the hardware (--force NUMBER)",
            "conforming: " + conforming + ", deviating: 1, not there: 1",
        }),
        all.lines);
}

TEST(DriverCheck, HoldsAllClientsAtATime) {
    const Answer few = run("", "ulimit -n 20; ");
    EXPECT_EQ(DEVIATING, few.status);
    EXPECT_EQ(0U, few.lines.at(0).find("driver: warning: open fails - Too many open files"));

    phone_do({"answer", "*", "bind", "-22"});
    const Answer none = run("");
    EXPECT_EQ(DEVIATING, none.status);
    EXPECT_EQ(1, std::count(none.lines.begin(), none.lines.end(),
                            "driver: warning: has no client: dmd watches none"));
}

TEST(DriverCheck, FindsWhetherAnErrorWakesWhoWaits) {
    const struct {
        const char* fault;
        std::string seconds;
        Status status;
        std::string line;
    } cases[] = {
        {"none", "60", CONFORMING, "dsm_tp: an error woke select, and get error tells 20002"},
        {"never-wakes", "3", DEVIATING,
         "dsm_tp: warning: an error was reported, but did not wake select: dmd does not notice it"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        phone_do({"reset"});
        phone_do({"fault", "dsm_tp", c.fault});
        write_file("/tmp/output", "");
        Answer answer;
        std::thread check([&] { answer = run("--wait " + c.seconds + " dsm_tp"); });
        EXPECT_TRUE(
            wait_until([] { return count_of(read_file("/tmp/output"), "report an error now") == 1; }));
        EXPECT_EQ("1", phone_do({"bound", "dsm_lcd"})) << "as dmd holds it";
        report_error("dsm_tp", 20002, "wake up");
        check.join();
        EXPECT_EQ(c.status, answer.status);
        EXPECT_EQ(c.line, answer.lines.at(1));
    }
    EXPECT_EQ("1", phone_do({"pending", "dsm_tp"})) << "the error is left for dmd";
}

TEST(DriverCheck, LeavesNobodyInACallWhenItIsKilled) {
    phone_do({"fault", "dsm_tp", "read-waits"});
    // The read begins within that second, or there is nobody to leave behind.
    run("dsm_tp", "timeout --foreground -s KILL 1 env ");
    EXPECT_TRUE(wait_until([] { return phone_do({"bound", "dsm_tp"}) == "0"; }));
}

TEST(DriverCheck, EndsInOneLineWithoutADriverOrAKnownWord) {
    const struct {
        const char* arguments;
        const char* line;
    } cases[] = {
        {"dsm_lcd dsm_tpp", "dmd-driver-check: no client dsm_tpp; --clients prints them"},
        {"--force dsm_tp", "dmd-driver-check: --force takes an error number, not dsm_tp"},
        {"--force +5", "dmd-driver-check: --force takes an error number, not +5"},
        {"--force 2147483648", "dmd-driver-check: --force takes an error number, not 2147483648"},
        {"--wait 0 dsm_tp", "dmd-driver-check: --wait takes 1 to 3600 seconds, not 0"},
        {"--wait 5", "dmd-driver-check: --wait takes the name of one client"},
        {"dsm_tp", "dmd-driver-check: cannot open /dev/dsm - No such device"},
    };
    phone_do({"gone"});
    for (const auto& c : cases) {
        const Answer answer = run(c.arguments);
        EXPECT_EQ(UNUSABLE, answer.status) << c.arguments;
        EXPECT_EQ(std::vector<std::string>{c.line}, answer.lines);
    }
    EXPECT_EQ(UNUSABLE, run("--drian").status);
    EXPECT_EQ(UNUSABLE, WEXITSTATUS(system((program + "--clients 2> /tmp/output > /dev/full").c_str())));
    EXPECT_EQ("dmd-driver-check: cannot write what was found\n", read_file("/tmp/output"));
}
