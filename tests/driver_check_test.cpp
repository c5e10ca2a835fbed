// dmd-driver-check: what it says of drivers, good and bad.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <sstream>
#include <string>
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

Answer run(const std::string& arguments) {
    const int status = system((program + arguments + " > /tmp/output 2>&1").c_str());
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
        {.what = "the end of a long name is not compared",
         .driver = {{"client", "dsm_tp_is_only_the_beginning_of_"}},
         .options = "",
         .lines = {"driver: warning: binds dsm_tp_is_only_the_beginning_of_, which is no client"},
         .status = DEVIATING},
        {.what = "no compat_ioctl",
         .driver = {{"answer", "*", "bind", "-25"}},
         .options = "",
         .lines = {"driver: warning: does not know the request bind, 0xc02078f1: dmd has no client. If dmd",
                   "dsm_tp: not there: bind fails - Inappropriate ioctl for device, and dmd leaves",
                   "driver: warning: has none of these clients"},
         .status = DEVIATING},
        {.what = "a positive refusal",
         .driver = {{"answer", "dsm_tp", "bind", "7"}},
         .options = "",
         .lines = {warning + "bind of descriptor 1 returns 7: dmd leaves the client out"},
         .status = DEVIATING},
        {.what = "no state",
         .driver = {{"answer", "dsm_tp", "state", "-5"}},
         .options = "",
         .lines = {warning + "get state fails - Input/output error: dmd logs it and goes on with 0"},
         .status = DEVIATING},
        {.what = "a state that is no number",
         .driver = {{"answer-text", "dsm_tp", "state", "12 V"}},
         .options = "",
         .lines = {warning + "get state answers \"12 V\", no decimal number of 32 bits: dmd makes 12 of it"},
         .status = DEVIATING},
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
                   warning + "is readable, but a read returns 0: dmd logs it and comes back"},
         .status = DEVIATING},
        {.what = "never readable",
         .driver = {PENDING, {"fault", "dsm_tp", "never-readable"}},
         .options = "",
         .lines = {warning + "tells error 20002, but is not readable: dmd never reads that error"},
         .status = DEVIATING},
        {.what = "readable on one descriptor",
         .driver = {PENDING, {"fault", "dsm_tp", "one-readable"}},
         .options = "",
         .lines = {warning + "is readable on some of its three descriptors only: dmd waits at the second"},
         .status = DEVIATING},
        {.what = "an interrupted read and request",
         .driver = {{"answer", "dsm_tp", "read", "-4", "3"}, {"answer", "dsm_tp", "state", "-4", "3"}},
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
                   "is readable, but a read fails - Input/output error: dmd logs it and comes back"},
         .status = DEVIATING},
        {.what = "a forced dump",
         .driver = {PENDING},
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
         .lines = {warning + "a forced dump makes the client readable, or changes what get error tells: dmd",
                   "dsm_tp: forced dump of 1, 33 bytes: "},
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
    const std::vector<std::string> forced = run("--force 7 dsm_tp").lines;
    ASSERT_LE(2U, forced.size());
    EXPECT_EQ((std::vector<std::string>{
                  "dsm_tp: forced dump of 7, 10 bytes: \"in the way\"",
                  "dsm_tp: warning: the read after a forced dump drops a pending error: dmd reports that "
                  "error's text as the dump, and never the error",
              }),
              std::vector<std::string>(forced.begin(), forced.begin() + 2));

    report_error("dsm_tp", 20002, "again and again");
    phone_do({"fault", "dsm_tp", "read-keeps"});
    const Answer endless = run("--drain dsm_tp");
    EXPECT_EQ(DEVIATING, endless.status);
    EXPECT_EQ(0U, endless.lines.at(100).find("dsm_tp: warning: is still readable after 100 texts: "));
}

TEST(DriverCheck, TellsOfAllClientsAndOfWhatIsMissing) {
    phone_do({"answer", "dsm_lcd", "bind", "-22"});
    phone_do({"answer", "dsm_key", "state", "-5"});
    const Answer all = run("");
    EXPECT_EQ(DEVIATING, all.status);
    const std::string conforming = std::to_string(default_clients.count - 2);
    EXPECT_EQ((std::vector<std::string>{
                  "dsm_lcd: not there: bind fails - Invalid argument, and dmd leaves the client out",
                  "dsm_key: warning: get state fails - Input/output error: dmd logs it and goes on with 0",
                  "not tried: what the driver does while an error is pending; there was none",
                  "not tried: forced dumps, because they may disturb the hardware (--force NUMBER)",
                  "conforming: " + conforming + ", deviating: 1, not there: 1",
              }),
              all.lines);
}

TEST(DriverCheck, EndsInOneLineWithoutADriverOrAKnownWord) {
    const struct {
        const char* arguments;
        const char* line;
    } cases[] = {
        {"dsm_lcd dsm_tpp", "dmd-driver-check: no client dsm_tpp; --clients prints them"},
        {"--force dsm_tp", "dmd-driver-check: --force takes an error number, not dsm_tp"},
        {"dsm_tp", "dmd-driver-check: cannot open /dev/dsm - No such device"},
    };
    phone_do({"gone"});
    for (const auto& c : cases) {
        const Answer answer = run(c.arguments);
        EXPECT_EQ(UNUSABLE, answer.status) << c.arguments;
        EXPECT_EQ(std::vector<std::string>{c.line}, answer.lines);
    }
    EXPECT_EQ(UNUSABLE, run("--drian").status);
}
