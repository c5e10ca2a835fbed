// dmd-report: what it makes of the daemon's files, whole, damaged, repeated and made to do harm.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>

#include <nlohmann/json.hpp>

#include "output/bug_head.h"
#include "output/compressed_dump.h"
#include "output/record.h"
#include "tests/phone_test.h"
#include "tests/tar_blocks.h"
#include "tools/phone_reports.h"
#include "tools/record_reader.h"
#include "tools/report_print.h"
#include "tools/report_summary.h"
#include "tools/terminal.h"

namespace {

using nlohmann::json;

constexpr int32_t TIME = 1433153472;  // 2015-06-01 10:11:12 UTC
const std::string RECORD = "dmd_record_0.txt";
const std::string MEMBER = "data/kvdx_logs/dmd_log/" + RECORD;

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

// Runs the tool with the words, which a shell splits. Its leaks cannot be looked for in a phone, whose /proc
// is a picture.
Outcome run_report(const std::string& words) {
    char self[4096] = "";
    EXPECT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const std::string tool = std::string(self).substr(0, std::string(self).rfind('/')) + "/dmd-report";
    write_file("/tmp/out", "");
    const int status =
        system(("ASAN_OPTIONS=detect_leaks=0 " + tool + " 2>/tmp/err >/tmp/out " + words).c_str());
    return {WEXITSTATUS(status), read_file("/tmp/out"), read_file("/tmp/err")};
}

struct Collected {
    std::vector<tools::Report> reports;
    std::vector<tools::Problem> problems;
};

// What is found in the files, which are of one phone.
Collected collect(const std::vector<std::string>& paths) {
    tools::FoundPhones found = tools::find_phones(paths, "");
    EXPECT_EQ(1U, found.phones.size());
    tools::PhoneReports phone = tools::read_phone(found.phones.at(0));
    found.problems.insert(found.problems.end(), phone.problems.begin(), phone.problems.end());
    return {std::move(phone.reports), found.problems};
}

// The reports that the tool finds in the folder, as its JSON document has them.
json reports_in(const std::string& folder) {
    const Outcome outcome = run_report("--json " + folder);
    EXPECT_EQ(0, outcome.status) << outcome.err;
    const json document = json::parse(outcome.out);
    EXPECT_EQ(json::array(), document["problems"]);
    return document["reports"];
}

std::string head(const std::string& second, int error_no = 20834, const std::string& device = "tpdev") {
    return HEAD_TITLE + ("[Date]:2015-06-01\n[Time]:10:11:" + second + "\n[Device]:" + device +
                         "\n[Error no]:" + std::to_string(error_no) + "\n[Runing_test_switch]:on\n");
}

std::string report(const std::string& second, const std::string& content) {
    return head(second) + HEAD_CONTENT + content;
}

std::string tar_of(const std::string& record) {
    return file(MEMBER, record) + END;
}

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

void enter_pulled() {
    ASSERT_EQ(0, system("rm -rf /tmp/pulled && mkdir -p /tmp/pulled/copy"));
    ASSERT_EQ(0, chdir("/tmp/pulled"));
}

// A debug build whose clock is three hours behind, and what its reports collect.
void prepare_phone() {
    setenv("TZ", "XXX+3", 1);
    set_commercial(false);
    write_file("/system/bin/top", "#!/bin/sh\nprintf 'a\\n\\nb\\n'\n");
    ASSERT_EQ(0, chmod("/system/bin/top", 0755));
    ASSERT_EQ(0, mkdir("/data/android_logs", 0755));
    write_file("/data/android_logs/kmsgcat-log", "log");
    write_file("/data/x", "x\n");
}

void write_report(int error_no, int32_t time, const std::string& content,
                  const std::string& device = "tpdev") {
    dmd_error_info info = make_error_info(error_no, time);
    strcpy(info.device_name, device.c_str());
    ASSERT_EQ(0, dmd_direct_output(content.data(), static_cast<int>(content.size()), &info, "/data/x", 4));
}

}  // namespace

TEST(Report, TellsWhatTheDaemonWrote) {
    prepare_phone();
    const struct {
        std::string device;
        std::string content;
    } cases[] = {
        {"tpdev", "no end"},
        {"two\nlines\t", "\n[Content]:\nof a line"},
        {"tpdev", std::string(HEAD_TITLE) + "[Date]:2015-06-01\nx"},
        {"tpdev", ""},
        {"tpdev", std::string(600000, 'x')},
    };
    constexpr int COUNT = std::size(cases);
    for (int i = 0; i < COUNT; ++i) {
        write_report(i, TIME + i, cases[i].content, cases[i].device);
    }
    const json reports = reports_in("/data");
    ASSERT_EQ(std::size(cases), reports.size());
    const json attachments = {{{"bytes", 3}, {"name", "data/android_logs/kmsgcat-log"}},
                              {{"bytes", 2}, {"name", "data/x"}}};
    for (int i = 0; i < COUNT; ++i) {
        SCOPED_TRACE(i);
        const json& found = reports[static_cast<size_t>(i)];
        EXPECT_EQ("report", found["kind"]);
        EXPECT_EQ("2015-06-01", found["date"]);
        EXPECT_EQ("07:11:1" + std::to_string(2 + i), found["time"]);
        EXPECT_EQ(cases[i].device, found["device"]);
        EXPECT_EQ(i, found["error"]);
        EXPECT_EQ("on", found["test_switch"]);
        EXPECT_EQ("a\nb\n", found["processes"]);
        EXPECT_EQ(cases[i].content, found["content"]);
        EXPECT_EQ(cases[i].content.size(), found["bytes"]);
        EXPECT_EQ(true, found["content_is_exact"]);
        EXPECT_EQ("/" + MEMBER, found["file"]);
        EXPECT_EQ(attachments, found["attachments"]);
        const size_t archives_since = std::size(cases) - static_cast<size_t>(i);
        EXPECT_EQ(1 + archives_since, found["places"].size());
        EXPECT_EQ("/data/kvdx_logs/dmd_log/dmd_dump_0000" + std::to_string(i) + "_07111" +
                      std::to_string(2 + i) + ".tar.gz",
                  found["archive"]);
    }
}

TEST(Report, KeepsTheBytesThatAreNoText) {
    prepare_phone();
    const std::string content("a\0\xff\x1b[2J\xed\xa0\x80", 10);
    write_report(5, TIME, content, "dev\xff");
    const json found = reports_in("/data")[0];
    EXPECT_EQ(false, found["content_is_exact"]);
    EXPECT_EQ("dev\xef\xbf\xbd", found["device"]);
    EXPECT_EQ(content.size(), found["bytes"]);
    const std::string shown = run_report("/data --show 1").out;
    EXPECT_TRUE(holds(shown, "\n\nContent:\n" + content + "\n\n")) << shown;
    EXPECT_TRUE(holds(shown, "\nDevice:       dev\\xff\n")) << shown;
}

TEST(Report, PrintsItsDocumentInAscii) {
    prepare_phone();
    // A C1 control, a bidirectional override, the end of the first plane and one beyond it.
    const std::string content = "\x7f\u009b2J\u202etxt\uffff\U0001f600";
    write_report(5, TIME, content);
    const std::string document = run_report("/data --json").out;
    EXPECT_TRUE(holds(document, R"("content":"\u007f\u009b2J\u202etxt\uffff\ud83d\ude00")")) << document;
    EXPECT_TRUE(std::all_of(document.begin(), document.end(),
                            [](char c) { return c == '\n' || (c >= ' ' && c < '\x7f'); }));
    EXPECT_EQ(content, json::parse(document)["reports"][0]["content"]);
}

TEST(Report, TellsOfDumpsWithoutAReport) {
    prepare_phone();
    dmd_error_info info = make_error_info(20002, static_cast<int32_t>(time(nullptr)) - 60);
    const tm today = local_time(info.time);
    char date[16];
    strftime(date, sizeof date, "%Y-%m-%d", &today);
    dmd_compress_output("bytes\0\n", 7, &info, DUMP_BYTES);
    info.error_no = 123456;
    dmd_compress_output("/data/x /data/android_logs/kmsgcat-log", 0, &info, DUMP_PATHS);

    const json reports = reports_in("/data");
    ASSERT_EQ(2U, reports.size());
    for (const json& found : reports) {
        EXPECT_EQ("dump", found["kind"]);
        EXPECT_EQ(date, found["date"]);
        EXPECT_EQ(nullptr, found["device"]);
        EXPECT_EQ(nullptr, found["content"]);
    }
    EXPECT_EQ(123456, reports[0]["error"]);
    EXPECT_EQ(2U, reports[0]["attachments"].size());
    EXPECT_EQ(5, reports[0]["bytes"]);
    EXPECT_EQ(20002, reports[1]["error"]);
    EXPECT_EQ(0U, reports[1]["attachments"].size());
    EXPECT_EQ(7, reports[1]["bytes"]);
    EXPECT_EQ(json::array({reports[1]}), json::parse(run_report("/data --json --show 2").out)["reports"]);
    EXPECT_TRUE(holds(run_report("/data --show 2").out, std::string("\n\nContent:\nbytes\0\n\n", 19)));
}

TEST(Report, TakesARecordApart) {
    struct Expected {
        std::string device;
        int32_t error_no;
        std::string test_switch;
        std::string processes;
        std::string content;
        bool cut = false;
    };
    const std::string full = head("12") + HEAD_PROCESSES;
    const std::string half_title = std::string(HEAD_TITLE).substr(0, 33);
    const std::string wrong_date = std::string(HEAD_TITLE) + "[Date]:2015-6-1\n";
    const std::string no_head = head("13").substr(0, 60) + "x";
    const struct {
        std::string what;
        std::string bytes;
        size_t bytes_before;
        std::vector<Expected> reports;
    } cases[] = {
        {"nothing", "", 0, {}},
        {"the end of a lost report", "lost" + report("12", "x"), 4, {{"tpdev", 20834, "on", "", "x"}}},
        {"a device with a line of a head",
         head("12", 1, "a\n[Error no]:5") + HEAD_CONTENT,
         0,
         {{"a\n[Error no]:5", 1, "on", "", ""}}},
        {"no device, and a content with a line of a head",
         head("12", -7, "") + HEAD_PROCESSES + "p\n[Content]:\nx\n[Content]:\n",
         0,
         {{"", -7, "on", "p\n", "x\n[Content]:\n"}}},
        {"a test switch with a line end",
         head("12").substr(0, head("12").size() - 3) + "\nb\n[Content]:\nx",
         0,
         {{"tpdev", 20834, "\nb", "", "x"}}},
        {"a process list without a line end", full + "p[Content]:\nx", 0, {{"tpdev", 20834, "on", "p", "x"}}},
        {"a process list that is cut", full + "p\n", 0, {{"tpdev", 20834, "on", "p\n", "", true}}},
        {"a head that another follows",
         head("12") + "[Cont" + report("13", "x"),
         0,
         {{"tpdev", 20834, "on", "", "", true}, {"tpdev", 20834, "on", "", "x"}}},
        {"a head that the record ends in",
         report("12", "x" + head("13").substr(0, 90)),
         0,
         {{"tpdev", 20834, "on", "", "x"}, {"tpdev", 0, "", "", "", true}}},
        {"a title that the record ends in",
         report("12", half_title),
         0,
         {{"tpdev", 20834, "on", "", half_title}}},
        {"a title without a date", report("12", wrong_date), 0, {{"tpdev", 20834, "on", "", wrong_date}}},
        {"a head that goes on otherwise", report("12", no_head), 0, {{"tpdev", 20834, "on", "", no_head}}},
        {"a time that is none", report("1x", "x"), report("1x", "x").size(), {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const tools::Record record = tools::read_record(c.bytes, 10);
        EXPECT_EQ(c.bytes_before, record.bytes_before);
        ASSERT_EQ(c.reports.size(), record.reports.size());
        for (size_t i = 0; i < c.reports.size(); ++i) {
            const tools::Report& found = record.reports[i];
            const Expected& expected = c.reports[i];
            EXPECT_EQ(expected.device, found.device);
            EXPECT_EQ(expected.error_no, found.error_no);
            EXPECT_EQ(expected.test_switch, found.test_switch);
            EXPECT_EQ(expected.processes, found.processes);
            EXPECT_EQ(expected.content, found.content);
            EXPECT_EQ(expected.cut, found.cut);
        }
    }
}

TEST(Report, IsOneWhereverItStands) {
    const std::string a = report("12", "a"), b = report("13", "bb"), c = report("14", "c");
    const std::string archive = "dmd_dump_20834_101113.tar";
    // The archive of a and b, which ends so many bytes behind a.
    const auto cut_behind_a = [&](size_t size) { return tar_of(a + b).substr(0, 512 + a.size() + size); };
    const struct {
        std::string what;
        std::map<std::string, std::string> files;
        std::vector<std::string> reports;
    } cases[] = {
        {"in the record and an archive",
         {{RECORD, a + b + c}, {archive, tar_of(a + b)}},
         {"a in 2 places", "bb in 2 places, with archive", "c"}},
        {"only in the archive", {{RECORD, c}, {archive, tar_of(a + b)}}, {"a", "bb, with archive", "c"}},
        {"twice in one file",
         {{RECORD, a + a + b}, {archive, tar_of(a + a)}},
         {"a in 2 places", "a in 2 places", "bb"}},
        {"the beginning of another", {{RECORD, a}, {"dmd_record_1.txt", a + "x"}}, {"a", "ax"}},
        {"the same in two records of one phone", {{RECORD, a}, {"dmd_record_1.txt", a}}, {"a", "a"}},
        {"pulled twice",
         {{RECORD, a + b}, {"copy/" + RECORD, a + b + c}},
         {"a in 2 places", "bb in 2 places", "c"}},
        {"a dump and its copy",
         {{"dmd_dump_00007_101112.txt", "x"}, {"copy/dmd_dump_00007_101112.txt", "x"}},
         {" in 2 places"}},
        {"a dump and another of that name",
         {{"dmd_dump_00007_101112.txt", "x"}, {"copy/dmd_dump_00007_101112.txt", "y"}},
         {"", ""}},
        {"a copy that is cut in its content",
         {{RECORD, a + b + c}, {archive, cut_behind_a(b.size() - 1)}},
         {"a in 2 places", "bb in 2 places, with archive", "c"}},
        {"a copy that is cut in the next title",
         {{RECORD, a + b}, {archive, cut_behind_a(9)}},
         {"a in 2 places", "bb"}},
        {"a copy that is cut in its head",
         {{RECORD, a + b}, {archive, cut_behind_a(60)}},
         {", cut", "a in 2 places", "bb"}},
        {"a copy that is cut in its head, behind its time",
         {{RECORD, a + b}, {archive, cut_behind_a(80)}},
         {"a in 2 places", "bb in 2 places"}},
        {"a report of the same second that is cut",
         {{archive, tar_of(a + report("12", "ab")).substr(0, 512 + 2 * a.size())}},
         {"a", "a, cut"}},
        {"two pieces of a report",
         {{archive, cut_behind_a(80)}, {"copy/" + archive, cut_behind_a(b.size() - 1)}},
         {"a in 2 places", "b in 2 places, cut, with archive"}},
        {"a copy that is cut at its end, and a whole one",
         {{RECORD, a + b}, {archive, cut_behind_a(b.size())}, {"dmd_dump_20834_101114.tar", tar_of(a + b)}},
         {"a in 3 places", "bb in 3 places, with archive"}},
    };
    for (const auto& each : cases) {
        enter_pulled();
        for (const auto& [path, bytes] : each.files) {
            write_file(path, bytes);
        }
        std::vector<std::string> reports;
        for (const tools::Report& found : collect({".", "./" + RECORD}).reports) {
            const size_t places = found.places.size();
            reports.push_back(found.content +
                              (places > 1 ? " in " + std::to_string(places) + " places" : "") +
                              (found.cut ? ", cut" : "") + (found.archive.empty() ? "" : ", with archive"));
        }
        EXPECT_EQ(each.reports, reports) << each.what;
    }
}

// Where a file is cut, everything before that place is there, and a problem is named.
TEST(Report, GivesAllBeforeACut) {
    std::minstd_rand random(1);
    std::string contents[3];
    std::string record;
    const char* const seconds[] = {"12", "13", "14"};
    for (size_t i = 0; i < std::size(contents); ++i) {
        while (contents[i].size() < 30000) {
            contents[i] += static_cast<char>(' ' + random() % 64);
        }
        record += report(seconds[i], contents[i]);
    }
    const size_t head_size = report("12", "").size();
    enter_pulled();
    write_file("whole", file(MEMBER, record) + file("data/log", "log") + END);
    ASSERT_EQ(0, system("gzip -k whole"));
    const struct {
        std::string name;
        std::string bytes;
        size_t end;      // that is no loss: the last size to try lies so far before it
        size_t missing;  // bytes before the cut that may not be there: compressed, or of a header
    } cases[] = {
        {"dmd_dump_20834_101114.tar.gz", read_file("whole.gz"), 1, 2000},
        {"dmd_dump_20834_101114.tar", read_file("whole"), 513, 512 + head_size},
    };
    for (const auto& c : cases) {
        for (size_t size = 1; size <= c.bytes.size() - c.end; size += 509) {
            SCOPED_TRACE(c.name + " of size " + std::to_string(size));
            write_file(c.name, c.bytes.substr(0, size));
            const Collected collection = collect({c.name});
            EXPECT_FALSE(collection.problems.empty());
            size_t read = 0;
            for (size_t i = 0; i < collection.reports.size(); ++i) {
                const tools::Report& found = collection.reports[i];
                const bool is_last = i + 1 == collection.reports.size();
                ASSERT_TRUE(is_last || (!found.cut && found.content == contents[i]));
                // Of the next title, which is cut, a piece counts as content.
                const size_t common = std::min(found.content.size(), contents[i].size());
                EXPECT_EQ(contents[i].substr(0, common), found.content.substr(0, common));
                read += head_size + found.content.size();
            }
            EXPECT_GE(read + c.missing, std::min(size, record.size()));
        }
    }
}

TEST(Report, NoticesAChangedByte) {
    std::minstd_rand random(1);
    std::string content;
    while (content.size() < 60000) {
        content += static_cast<char>(' ' + random() % 64);
    }
    enter_pulled();
    write_file("whole", tar_of(report("12", content)));
    ASSERT_EQ(0, system("gzip whole"));
    const std::string bytes = read_file("whole.gz");
    for (size_t at = 0; at < bytes.size(); at += 1019) {
        std::string changed = bytes;
        changed[at] = static_cast<char>(changed[at] ^ 0x10);
        write_file("dmd_dump_20834_101114.tar.gz", changed);
        EXPECT_FALSE(collect({"dmd_dump_20834_101114.tar.gz"}).problems.empty()) << at;
    }
}

TEST(Report, SaysWhatCannotBeRead) {
    const auto expect_problem = [](const std::string& said) {
        const Outcome outcome = run_report(".");
        EXPECT_EQ(1, outcome.status);
        EXPECT_TRUE(holds(outcome.err, said)) << outcome.err;
        EXPECT_TRUE(holds(outcome.out, "\n1\t2015-06-01\t10:11:12\t")) << "the other file is read";
    };
    const std::string archive = "dmd_dump_20834_101112.tar", dump = "dmd_dump_00001_000000.txt.gz";
    const std::string member = file(MEMBER, report("13", "x"));
    const struct {
        std::string path;
        std::string bytes;
        std::string said;
    } files[] = {
        {"dmd_record_1.txt", "", "is empty"},
        {"dmd_record_1.txt", "junk" + report("13", "x"), "4 bytes before the first report belong to none"},
        {"dmd_record_1.txt", report("13", "x") + head("14"), "ends within the head of a report"},
        {dump, "junk", "is not compressed as its name says"},
        {archive, "junk", "holds no report, but 4 bytes of something else"},
        {archive, member, "is cut: the archive has no end"},
        {archive, member + damaged(header("a")) + END, "is damaged after "},
        {archive, member + END + member, "has bytes behind the end of the archive"},
        {archive, member + header("huge", '0', "77777777777") + END, "is cut within huge"},
    };
    for (const auto& c : files) {
        SCOPED_TRACE(c.said);
        enter_pulled();
        write_file(RECORD, report("12", "x"));
        write_file(c.path, c.bytes);
        expect_problem("dmd-report: ./" + c.path + ": " + c.said);
    }
    const struct {
        std::string command;  // that makes the file
        std::string said;
    } made[] = {
        {"mkfifo dmd_record_1.txt", "./dmd_record_1.txt: is no regular file"},
        {"ln -s . loop; ln -s /dev/zero dmd_record_1.txt", "./dmd_record_1.txt: is a symbolic link"},
        {"truncate -s 2G dmd_record_1.txt", "holds a longer record than any phone makes"},
        {"head -c 64M /dev/zero | gzip > m; for i in $(seq 17); do cat m; done >" + dump,
         "is read no further than its first GiB"},
        {"(echo | gzip | head -c -8; printf 12345678) >" + dump, "has a wrong checksum"},
        {"(echo x | gzip; echo y | gzip; echo z) >" + dump, "has bytes behind its compressed data"},
    };
    for (const auto& c : made) {
        SCOPED_TRACE(c.command);
        enter_pulled();
        write_file(RECORD, report("12", "x"));
        ASSERT_EQ(0, system(c.command.c_str()));
        expect_problem(c.said);
    }
}

TEST(Report, FindsNothingInAFolderOfOtherFiles) {
    enter_pulled();
    write_file("other", report("12", "x"));
    const Outcome searched = run_report(".");
    EXPECT_EQ(1, searched.status);
    EXPECT_TRUE(holds(searched.err, "dmd-report: .: holds no file named ")) << searched.err;
    EXPECT_EQ(0, run_report("other").status) << "a file that is named is read whatever its name";
}

TEST(Report, ReadsWhatStandsBehindADamagedHeader) {
    enter_pulled();
    write_file("dmd_dump_20834_101112.tar", file(MEMBER, report("12", "x")) + damaged(header("a")) +
                                                file("dmd_record_1.txt", report("13", "y")) + END);
    EXPECT_TRUE(holds(run_report(".").out, "\n2\t2015-06-01\t10:11:13\t"));
}

// An archive may name anything: it is told, and nothing of it touched.
TEST(Report, ShowsHarmfulMembersAsText) {
    const std::string evil = "\x1b[2J\n", name = "dmd_dump_20834_101112.tar";
    enter_pulled();
    write_file(name, file(MEMBER, report("12", "x")) + header(evil, '3', "0", "", "020644", "1", "3") +
                         header(RECORD, '2', "0", "/etc/passwd") + END);
    const Collected collection = collect({name});
    EXPECT_TRUE(collection.problems.empty());
    ASSERT_EQ(1U, collection.reports.size());
    std::string shown;
    tools::show_report({true, false}, collection.reports[0], true,
                       [&](std::string_view piece) { shown += piece; });
    EXPECT_TRUE(holds(shown, "\\x1b[2J\\n, 0 bytes\n")) << shown;
    EXPECT_TRUE(holds(shown, RECORD + ", 0 bytes\n")) << shown;
}

TEST(Report, EscapesWhatDisturbsALine) {
    const struct {
        std::string text;
        std::string shown;
    } cases[] = {
        {"\t\n\r\\", "\\t\\n\\r\\\\"},
        {"\x1b\x7f", "\\x1b\\x7f"},
        {std::string(1, '\0'), "\\x00"},
        {"a\u00e9\u6f22\U0001f600", "a\u00e9\u6f22\U0001f600"},
        {"\u0085", "\\xc2\\x85"},                      // a control character of two bytes
        {"\u202e", "\\xe2\\x80\\xae"},                 // turns the text behind it round
        {"\xc3x", "\\xc3x"},                           // half a character
        {"\xc0\x80", "\\xc0\\x80"},                    // a longer form than needed
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},           // half of a pair
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond the last character
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.shown, tools::one_line(c.text));
    }
    EXPECT_EQ("\n\t\\ \\r\\x1b", tools::without_controls("\n\t\\ \r\x1b"));
}

class ReportOptions : public testing::Test {
  protected:
    void SetUp() override {
        enter_pulled();
        write_file(RECORD, report("14", "c") + head("12", -5, "\x1b\xc2\x9b") + HEAD_CONTENT + "a" +
                               head("13", 7, "Lcd_Panel") + HEAD_CONTENT + "b");
        write_file("dmd_dump_00007_101113.txt", "dump");  // without a date
        write_file("foreign", "<!DOCTYPE html>\n<html>");
    }
};

TEST_F(ReportOptions, Choose) {
    const struct {
        std::string options;
        std::vector<std::string> numbers;
    } cases[] = {
        {"", {"1", "2", "3", "4"}},
        {"--device tpdev", {"3"}},
        {"--device 'lcd_*' --device '?PDE*'", {"2", "3"}},
        {"--device '[!l]*'", {"1", "3"}},
        {"--error -5", {"1"}},
        {"--error -9--5 --error 8-20834", {"1", "3"}},
        {"--error 7 --since 2015-06-01", {"2"}},
        {"--since 2015-06-01T10:11:13", {"2", "3"}},
        {"--until '2015-06-01 10:11:13'", {"1", "2"}},
        {"--until 2015-06-01 --since '2015-06-01 10:11'", {"1", "2", "3"}},
        {"--until '2015-06-01 10:10'", {}},
        {"--since -1w", {}},
        {"--since -9999d --until yesterday", {"1", "2", "3"}},
        {"--phone 'PULL*' --grep C", {"3"}},
        {"-n 2", {"3", "4"}},
        {"-r -n 2", {"4", "3"}},
        {"--sort bytes", {"4", "1", "2", "3"}},
        {"--sort error -r -n 2", {"3", "4"}},
    };
    for (const auto& c : cases) {
        std::istringstream lines(run_report(". " + c.options).out);
        std::string line;
        std::getline(lines, line);  // the titles
        std::vector<std::string> numbers;
        while (std::getline(lines, line)) {
            numbers.push_back(line.substr(0, line.find('\t')));
        }
        EXPECT_EQ(c.numbers, numbers) << c.options;
    }
}

TEST_F(ReportOptions, ThatAreWrongAreRefused) {
    const struct {
        std::string options;
        int status;
        std::string said;
    } cases[] = {
        {"--since 2015-02-29", 2, "--since: \"2015-02-29\" is no time, as "},
        {"--error 9-7", 2, "--error: \"9-7\" is no error number, as "},
        {"--show 5", 2, "there is no report 5: there are 4 reports"},
        {"--show 1 --error 7", 2, "and no filter"},
        {"--show ''", 2, "is no number, as 7"},
        {"-n -1", 2, "is no number, as 7"},
        {"--device ''", 2, "--device: its value is empty"},
        {"--html x --json", 2, "--json and --html do not go together"},
        {"--since 2015-06-02 --until 2015-06-01", 2, "--since is after --until"},
        {"--sort size", 2, "there is no column \"size\"; columns: n, date, "},
        {"--by day", 2, "--by and --texts go with --summary"},
        {"--json -n 1", 2, "go with the table and with --summary"},
        {"--phone-from '*'", 2, "--phone-from has no {phone} in it"},
        {"--device 'x*' --error 5", 1,
         "no report of device x*; devices there: \\x1b\\xc2\\x9b, Lcd_Panel, tpdev"},
        {"--device 'x*' --error 5", 1, "no report of error 5; errors there: -5, 20834, 7"},
        {"--summary --phone 'x*' --error 5", 1, "no report of phone x*; phones there: pulled"},
        {"--summary --by week", 2, "\"week\" is neither phone nor day"},
        {"--error 7 --grep c", 1, "no report passes all filters; alone: 2 --error, 1 --grep"},
        {"--since 2015-06-02", 1, "no report since 2015-06-02 00:00:00; the last is of 2015-06-01 10:11:14"},
        {"--names nosuch", 1, "cannot read nosuch: No such file or directory"},
        {"nosuch", 1, "nosuch: No such file or directory"},
        {">/dev/full", 1, "cannot write the output: No space left on device"},
        {">&-", 1, "cannot write the output: "},
        {"--help >/dev/full", 1, "cannot write the output"},
        {"--html " + RECORD, 1, "it is there and is no page"},
        {"--html foreign", 1, "it is there and is no page"},
        {"--html /dev/null", 1, "is no regular file"},
        {"--html nosuch/page", 1, "cannot write nosuch/page: No such file or directory"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = run_report(". " + c.options);
        EXPECT_EQ(c.status, outcome.status) << c.options;
        EXPECT_TRUE(holds(outcome.err, c.said)) << c.options << "\n" << outcome.err;
    }
}

TEST_F(ReportOptions, WriteAPageInPlaceOfAPage) {
    ASSERT_EQ(0, symlink("page", "link"));
    EXPECT_EQ(0, run_report(". --html page").status);
    EXPECT_EQ(0, run_report(". --html link --device 'Lcd*'").status);
    EXPECT_TRUE(holds(read_file("page"), "Lcd_Panel"));
    EXPECT_FALSE(holds(read_file("page"), "tpdev"));
    EXPECT_EQ(
        (std::vector<std::string>{"copy", "dmd_dump_00007_101113.txt", RECORD, "foreign", "link", "page"}),
        names_in("."));
}

// Writes the files, and the folders that they are in.
void write_files(const std::map<std::string, std::string>& files) {
    for (const auto& [path, bytes] : files) {
        std::filesystem::create_directories("./" + path.substr(0, path.rfind('/') + 1));
        write_file(path, bytes);
    }
}

TEST(ReportPhones, HaveTheNamesOfTheirFolders) {
    const struct {
        std::string what;
        std::vector<std::string> files;
        std::vector<std::string> paths;
        std::string phone_from;
        std::vector<std::string> phones;
    } cases[] = {
        {"files in the path itself", {"p/", "p/copy/"}, {"p"}, "", {"p"}},
        {"a file", {"p/dmd_log/"}, {"p/dmd_log/" + RECORD}, "", {"p"}},
        {"several folders", {"f/a/", "f/a/first/", "f/b/second/"}, {"f"}, "", {"a", "b"}},
        {"a folder that holds all", {"f/all/a/", "f/all/b/c/"}, {"f"}, "", {"a", "b"}},
        {"a folder in each", {"p/logs/", "q/logs/"}, {"p", "q"}, "", {"p", "q"}},
        {"the phone's own folders", {"p/data/kvdx_logs/dmd_log/"}, {"p"}, "", {"p"}},
        {"the phone's own folders alone", {"p/dmd_log/"}, {"p/dmd_log"}, "", {"p"}},
        {"days of two phones", {"p/2026-11-24/", "q/2026-11-24/"}, {"p", "q"}, "", {"p", "q"}},
        {"phones of two days",
         {"f/2026-11-24/a/", "f/2026-11-25 10_11/a/", "f/2026-11-25 10_11/b/"},
         {"f"},
         "",
         {"a", "b"}},
        {"the folder at hand", {"a/"}, {"a/."}, "", {"a"}},
        {"two pulls of a phone", {"mon/a/", "mon/b/", "tue/a/", "tue/b/"}, {"mon", "tue"}, "", {"a", "b"}},
        {"folders in another order", {"f/mon/a-1/", "f/tue/a-2/"}, {"f"}, "./f/*/{phone}-?/", {"a"}},
        {"a pattern that does not fit", {"f/a/", "f/b+/"}, {"f"}, "f/{phone}+", {"a", "b"}},
    };
    for (const auto& c : cases) {
        enter_pulled();
        for (const std::string& folder : c.files) {
            write_files({{folder + RECORD, "x"}});
        }
        std::vector<std::string> phones;
        for (const tools::FoundPhone& phone : tools::find_phones(c.paths, c.phone_from).phones) {
            phones.push_back(phone.name);
        }
        EXPECT_EQ(c.phones, phones) << c.what;
    }
}

TEST(ReportPhones, KeepTheirReportsApart) {
    enter_pulled();
    const std::string a = report("12", "a"), b = report("13", "b");
    write_files({{"f/p1/" + RECORD, a}, {"f/p2/mon/" + RECORD, a}, {"f/p2/tue/" + RECORD, a + b}});
    std::vector<std::string> found;
    for (const json& each : reports_in("f")) {
        found.push_back(each["phone"].get<std::string>() + " " + each["content"].get<std::string>() + " " +
                        std::to_string(each["places"].size()));
    }
    EXPECT_EQ((std::vector<std::string>{"p1 a 1", "p2 a 2", "p2 b 1"}), found);

    std::istringstream lines(run_report("--json-lines --phone P2 --until '2015-06-01 10:11:12' f").out);
    std::string line, next;
    std::getline(lines, line);
    EXPECT_EQ("p2", json::parse(line)["phone"]);
    EXPECT_EQ(reports_in("f/p1")[0]["key"], json::parse(line)["key"])
        << "the key does not depend on the pull";
    EXPECT_FALSE(std::getline(lines, next)) << next;
}

TEST(ReportPhones, MayBePacked) {
    setenv("TMPDIR", "/tmp", 1);
    enter_pulled();
    const std::string dump = "dmd_dump_20834_101112.tar.gz";
    write_files({{"f/p1/" + RECORD, report("12", "a")},
                 {"f/p2/" + RECORD, report("12", std::string(100000, 'b'))},
                 {"f/p2/dmd_dump_00007_101112.txt", "dump"},
                 {"f/p2/other", "x"},
                 {"log", tar_of(report("12", "a"))}});
    ASSERT_EQ(0, system(("gzip <log >f/p1/" + dump).c_str()));
    const auto told = [](const std::string& path) {
        std::vector<std::string> reports;
        for (const json& each : reports_in(path)) {
            reports.push_back(each["phone"].get<std::string>() + " " +
                              std::to_string(each["bytes"].get<int>()) + " in " +
                              std::to_string(each["places"].size()));
        }
        return reports;
    };
    const std::vector<std::string> all = {"p1 1 in 2", "p2 100000 in 1", "p2 4 in 1"};
    EXPECT_EQ(all, told("f"));
    for (const std::string name : {"f.zip", "f.tar", "f.tgz", "f.tar.gz", "f.tar.xz"}) {
        ASSERT_EQ(0, system(("bsdtar -caf " + name + " f && mkdir -p in && mv " + name + " in").c_str()));
        EXPECT_EQ(all, told("in/" + name)) << name;
        EXPECT_EQ(all, told("in")) << "a folder with it";
        EXPECT_TRUE(holds(run_report("in --show 3").out, "\n\nContent:\ndump\n")) << name;
        ASSERT_EQ(0, system("rm -r in"));
    }
    // What stands in a pull that is damaged may be so itself.
    ASSERT_EQ(0, system("tar cf f.tar f/p1 f/p2/dmd_r* && head -c 50000 f.tar >cut.tar && rm -r f f.tar"));
    const json document = json::parse(run_report("--json cut.tar").out);
    EXPECT_EQ("cut.tar", document["problems"][0]["file"]);
    ASSERT_EQ(2U, document["reports"].size());
    EXPECT_EQ(true, document["reports"][0]["damaged"]);
    EXPECT_EQ(false, document["reports"][0]["cut"]);
    EXPECT_EQ(true, document["reports"][1]["cut"]);
}

TEST(ReportPhones, MayBePackedInOddWays) {
    setenv("TMPDIR", "/tmp", 1);
    enter_pulled();
    write_files({{"f/p0/" + RECORD, ""},
                 {"f/p1/" + RECORD, report("12", "a")},
                 {"f/p\u00f62/" + RECORD, report("12", "b")}});
    ASSERT_EQ(0, system("mkdir f/p3 && ln f/p1/* f/p3"));
    const auto told = [](const std::string& path) {
        const json document = json::parse(run_report("--json " + path).out);
        std::string reports;
        for (const json& each : document["reports"]) {
            reports += each["phone"].get<std::string>() + each["content"].get<std::string>() + " ";
        }
        for (const json& problem : document["problems"]) {
            reports += problem["file"].get<std::string>() + " " + problem["text"].get<std::string>();
        }
        return reports;
    };
    const std::string record = "/p0/" + RECORD + " is empty";
    EXPECT_EQ("p1a p3a p\u00f62b f" + record, told("f")) << "two phones may have one file";
    ASSERT_EQ(0, system("tar cf f.tar f && LC_ALL=C.UTF-8 bsdtar -caf f.zip f"));
    EXPECT_EQ("p1a p3a p\u00f62b f.tar/f" + record, told("f.tar")) << "a hard link";
    EXPECT_EQ("p1a p3a p\u00f62b f.zip/f" + record, told("f.zip"));
    setenv("TMPDIR", "/nosuch", 1);
    EXPECT_EQ("p1a p3a p\u00f62b ", told("f.tar f").substr(0, 14))
        << "a pull that cannot be unpacked costs no other";
}

TEST(Report, MarksWhatOnlyDamagedFilesHold) {
    enter_pulled();
    write_files({{RECORD, report("12", "a")},
                 {"dmd_dump_20834_101113.tar", file(MEMBER, report("12", "a") + report("13", "b"))}});
    const json document = json::parse(run_report("--json .").out);
    EXPECT_EQ(1U, document["problems"].size());
    ASSERT_EQ(2U, document["reports"].size());
    EXPECT_EQ(false, document["reports"][0]["damaged"]) << "the record has it whole";
    EXPECT_EQ(true, document["reports"][0]["places"][1]["damaged"]);
    EXPECT_EQ(true, document["reports"][1]["damaged"]);
    EXPECT_TRUE(holds(run_report(".").out, "\tdamaged\t\tb\n"));
}

TEST(ReportNames, ReplaceNumbersAndDevices) {
    enter_pulled();
    write_file(RECORD, report("12", "a") + head("13", -7, "tp two") + HEAD_CONTENT);
    write_file("names",
               "\xef\xbb\xbf# ours\n\n20834 \t no answer\r\n-7 minus seven\n tpdev = tp, tp two "
               "\nnonsense\n5x y\n= a\na =\n");
    const Outcome outcome = run_report(". --names names --device tpdev --json");
    const json document = json::parse(outcome.out);
    EXPECT_EQ("no answer", document["reports"][0]["name"]);
    EXPECT_EQ("minus seven", document["reports"][1]["name"]);
    EXPECT_EQ("tpdev", document["reports"][1]["device"]);
    std::vector<std::string> wrong;
    for (const json& problem : document["problems"]) {
        wrong.push_back(problem["file"]);
    }
    EXPECT_EQ((std::vector<std::string>{"names:6", "names:7", "names:8", "names:9"}), wrong);
}

TEST(ReportSummary, MasksNumbersInLikeTexts) {
    const struct {
        std::string text;
        std::string masked;
    } cases[] = {
        {"i2c timed out, retry 12", "i2c timed out, retry #"},
        {"0x1fG 0x 12ab 3.5 -7ms _8 9", "#G #x #ab #.# -#ms _8 #"},
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.masked, tools::mask_numbers(c.text));
    }
}

TEST(ReportSummary, TellsWhatBreaksMostAndSinceWhen) {
    const auto summarise = [](tools::SummaryBy by, const std::vector<tools::Report>& reports,
                              bool is_terminal) {
        tools::ReportSummary summary(by);
        for (const tools::Report& report : reports) {
            summary.add(report);
        }
        std::vector<std::string> lines;
        for (const tools::Row& row : summary.table({is_terminal}).rows) {
            std::string line;
            for (const std::string& cell : row.cells) {
                line += (line.empty() ? "" : "|") + cell;
            }
            lines.push_back(line);
        }
        return lines;
    };
    const auto make = [](const std::string& phone, const std::string& date, int32_t error_no,
                         const std::string& content) {
        tools::Report report;
        report.phone = phone;
        report.date = date;
        report.time = "10:11:12";
        report.device = "tp";
        report.error_no = error_no;
        report.content = content;
        return report;
    };
    std::vector<tools::Report> reports = {
        make("a", "2026-11-01", 5, " \nretry 1\nx"), make("b", "2026-11-02", 5, "retry 22"),
        make("b", "2026-11-03", 5, "else"), make("b", "2026-11-03", 7, ""), make("c", "2026-99-03", 7, "")};
    using Lines = std::vector<std::string>;
    EXPECT_EQ(
        (Lines{
            "tp|5|3|2|2026-11-01 10:11:12|2026-11-03 10:11:12|b (2)|0|2026-11-01:1,2026-11-02:1,2026-11-03:1",
            "tp|7|2|2|2026-11-03 10:11:12|2026-99-03 10:11:12|b (1)|1|2026-11-03:1"}),
        summarise(tools::BY_ERROR, reports, false));
    EXPECT_EQ((Lines{"tp|5|3|2|11-01|11-03|b (2)|0|███", "tp|7|2|2|11-03|99-03|b (1)|1|  █"}),
              summarise(tools::BY_ERROR, reports, true));
    EXPECT_EQ((Lines{"a|1|1|11-01|11-01|tp 5 (1)|-1|█  ", "b|3|2|11-02|11-03|tp 5 (2)|2| ▄█",
                     "c|1|1|99-03|99-03|tp 7 (1)|0|   "}),
              summarise(tools::BY_PHONE, reports, true));
    EXPECT_EQ((Lines{"2026-11-01|1|1|1|tp 5 (1)", "2026-11-02|1|1|1|tp 5 (1)", "2026-11-03|2|1|2|tp 5 (1)",
                     "2026-99-03|1|1|1|tp 7 (1)"}),
              summarise(tools::BY_DAY, reports, true));
    EXPECT_EQ((Lines{"tp|5|1|1|11-03|11-03|else", "tp|5|2|2|11-01|11-02|retry #", "tp|7|2|2|11-03|99-03|"}),
              summarise(tools::BY_TEXT, reports, true));

    // A phone whose clock is years off leaves the bars of the others as they are.
    for (int i = 0; i < 100; ++i) {
        reports.push_back(make("a", "2026-11-01", 5, ""));
    }
    reports.push_back(make("d", "1970-01-01", 5, ""));
    EXPECT_EQ("tp|5|104|3|1970-01-01|2026-11-03|a (101)|-100|█▁▁",
              summarise(tools::BY_ERROR, reports, true)[0]);
}

TEST(Terminal, TablesFitItsWidth) {
    using tools::Fit;
    using tools::Holds;
    const tools::Table table = {
        {{"N", Holds::NUMBER},
         {"EMPTY"},
         {"PATH", Holds::TEXT, Fit::DROPPED},
         {"TEXT", Holds::TEXT, Fit::CUT}},
        {{{"7", "", "a/path", "thirty letters äöüäöüäöüäöüäöü"}}, {{"10", "", "b", "\n"}}}};
    EXPECT_EQ(" N  PATH    TEXT\n 7  a/path  thirty letters äöüäöüäöüäöüäöü\n10  b       \\n\n",
              format_table({true, false, 42}, table));
    EXPECT_EQ(" N  TEXT\n 7  thirty letters äöüäöüäöüäöüäöü\n10  \\n\n",
              format_table({true, false, 41}, table));
    EXPECT_EQ(" N  TEXT\n 7  thirty letters ä…\n10  \\n\n", format_table({true, false, 21}, table));
    EXPECT_EQ("N\tEMPTY\tPATH\tTEXT\n7\t\ta/path\tthirty letters äöüäöüäöüäöüäöü\n10\t\tb\t\\n\n",
              format_table({false, false, 32}, table));
}
