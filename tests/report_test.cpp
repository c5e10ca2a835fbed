// dmd-report: what it makes of the daemon's files, whole, damaged, repeated and made to do harm.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <random>
#include <sstream>

#include <nlohmann/json.hpp>

#include "output/compressed_dump.h"
#include "output/record.h"
#include "tests/phone_test.h"
#include "tests/tar_blocks.h"
#include "tools/record_reader.h"
#include "tools/report_collection.h"
#include "tools/report_print.h"

namespace {

using nlohmann::json;

constexpr int32_t TIME = 1433153472;  // 2015-06-01 10:11:12 UTC
const std::string R = "dmd_record_0.txt";
const std::string MEMBER = "data/kvdx_logs/dmd_log/" + R;

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

std::string head(const std::string& second, int error_no = 20834, const std::string& device = "tpdev") {
    return "\n========Device Bugreport========\n[Date]:2015-06-01\n[Time]:10:11:" + second +
           "\n[Device]:" + device + "\n[Error no]:" + std::to_string(error_no) +
           "\n[Runing_test_switch]:on\n";
}

std::string report(const std::string& second, const std::string& content, int error_no = 20834) {
    return head(second, error_no) + "[Content]:\n" + content;
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void enter_pulled() {
    ASSERT_EQ(0, system("rm -rf /tmp/pulled && mkdir /tmp/pulled"));
    ASSERT_EQ(0, chdir("/tmp/pulled"));
}

}  // namespace

TEST(Report, ShowsWhatTheDaemonWrote) {
    setenv("TZ", "XXX+3", 1);
    set_commercial(false);
    write_file("/system/bin/top", "#!/bin/sh\nprintf 'a\\n\\nb\\n'\n");
    ASSERT_EQ(0, chmod("/system/bin/top", 0755));
    ASSERT_EQ(
        0,
        system("mkdir -p /data/android_logs; printf log >/data/android_logs/kmsgcat-log; echo x >/data/x"));
    const std::string contents[] = {std::string("a\0\xff\x1b[2J", 7), "no end\n\n[Content]:\nof a line",
                                    "\n========Device Bugreport========\n[Date]:2015-06-01\nx", "",
                                    std::string(600000, 'x')};
    int error_no = -5;
    for (const std::string& content : contents) {
        dmd_error_info info = make_error_info(error_no, TIME + error_no);
        strcpy(info.device_name, error_no == -4 ? "two\nlines\t\xff" : "tpdev");
        ASSERT_EQ(0,
                  dmd_direct_output(content.data(), static_cast<int>(content.size()), &info, "/data/x", 4));
        ++error_no;
    }
    dmd_error_info info = make_error_info(20002, static_cast<int32_t>(time(nullptr)) - 60);
    const tm today = local_time(info.time);
    char date[16];
    strftime(date, sizeof date, "%Y-%m-%d", &today);
    dmd_compress_output("bytes\0\n", 7, &info, DUMP_BYTES);
    info.error_no = 123456;
    dmd_compress_output("/data/x /system/bin/top", 0, &info, DUMP_PATHS);

    const Outcome outcome = run_report("--json /data");
    ASSERT_EQ(0, outcome.status) << outcome.err;
    const json document = json::parse(outcome.out);
    EXPECT_EQ(json::array(), document["problems"]);
    ASSERT_EQ(7U, document["reports"].size());
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        const json r = document["reports"][static_cast<size_t>(i)];
        EXPECT_EQ(i == 0, r["content_is_exact"] == false && r["device"] == "tpdev");
        EXPECT_EQ(i == 1 ? "two\nlines\t\xef\xbf\xbd" : "tpdev", r["device"]);
        EXPECT_TRUE(i == 0 || r["content"] == contents[i]);
        EXPECT_EQ(contents[i].size(), r["bytes"]);
        EXPECT_EQ("a\nb\n", r["processes"]);
        const std::string second = std::to_string(107 + i).substr(1);
        EXPECT_EQ((json{"2015-06-01", "07:11:" + second, i - 5, "on", "/" + MEMBER, "report"}),
                  (json{r["date"], r["time"], r["error"], r["test_switch"], r["file"], r["kind"]}));
        EXPECT_EQ(6U - static_cast<size_t>(i), r["places"].size()) << "the record, and each archive since";
        EXPECT_EQ((json{{"file", r["archive"]}, {"member", MEMBER}}), r["places"].back());
        EXPECT_EQ((json{{{"bytes", 3}, {"name", "data/android_logs/kmsgcat-log"}},
                        {{"bytes", 2}, {"name", "data/x"}}}),
                  r["attachments"]);
        const Outcome shown = run_report("/data --show " + std::to_string(i + 1));
        EXPECT_TRUE(ends_with(shown.out, "\n\nContent:\n" + contents[i])) << shown.out.substr(0, 2000);
    }
    const json dumps[] = {
        {"dump", date, nullptr, nullptr, 123456, 2, 2 + read_file("/system/bin/top").size()},
        {"dump", date, nullptr, nullptr, 20002, 0, 7},
    };
    for (const size_t i : {0, 1}) {
        const json r = document["reports"][5 + i];
        EXPECT_EQ(dumps[i], (json{r["kind"], r["date"], r["device"], r["content"], r["error"],
                                  r["attachments"].size(), r["bytes"]}));
    }
    EXPECT_TRUE(ends_with(run_report("/data --show 7").out, std::string("\n\nContent:\nbytes\0\n", 18)));
}

TEST(Report, TakesARecordApart) {
    const std::string title = "\n========Device Bugreport========\n",
                      full = "[Temperature]:null\n[Process]:\n";
    // The record; the bytes before; of each report device, error, switch, processes, content and cut.
    const std::tuple<std::string, size_t, std::string> cases[] = {
        {"", 0, ""},
        {"lost" + report("12", "x") + "\n", 4, "tpdev 20834 on <> <x\n>\n"},
        {head("12", 1, "a\n[Error no]:5") + "[Content]:\n", 0, "a\n[Error no]:5 1 on <> <>\n"},
        {head("12", -7, "") + full + "p\n[Content]:\nx\n[Content]:\n", 0, " -7 on <p\n> <x\n[Content]:\n>\n"},
        {head("12") + full + "piece[Content]:\nx", 0, "tpdev 20834 on <piece> <x>\n"},
        {head("12") + full + "p\n", 0, "tpdev 20834 on <p\n> <> cut\n"},
        {head("12") + "[Cont" + report("13", "x"), 0, "tpdev 20834 on <> <> cut\ntpdev 20834 on <> <x>\n"},
        {report("12", "x" + head("13").substr(0, 90)), 0, "tpdev 20834 on <> <x>\ntpdev 0  <> <> cut\n"},
        {report("12", title.substr(0, 33)), 0, "tpdev 20834 on <> <" + title.substr(0, 33) + ">\n"},
        {report("12", title + "[Date]:2015-6-1\n" + head("13").substr(0, 60) + "x"), 0,
         "tpdev 20834 on <> <" + title + "[Date]:2015-6-1\n" + head("13").substr(0, 60) + "x>\n"},
        {report("1x", "x"), report("1x", "x").size(), ""},
        {head("12").substr(0, head("12").size() - 3) + "\n" + "b\n[Content]:\nx", 0,
         "tpdev 20834 \nb <> <x>\n"},
    };
    for (const auto& [bytes, before, expected] : cases) {
        const tools::Record record = tools::read_record(bytes, 10);
        std::string text;
        for (const tools::Report& r : record.reports) {
            text += r.device + " " + std::to_string(r.error_no) + " " + r.test_switch + " <" + r.processes +
                    "> <" + r.content + ">" + (r.cut ? " cut" : "") + "\n";
        }
        EXPECT_EQ(expected, text) << bytes;
        EXPECT_EQ(before, record.bytes_before) << bytes;
    }
}

TEST(Report, IsOneWhereverItStands) {
    const std::string a = report("12", "a"), b = report("13", "bb"), c = report("14", "c");
    const auto tar = [](const std::string& record) { return file(MEMBER, record) + END; };
    const auto cut_tar = [&](size_t size) { return tar(a + b).substr(0, 512 + a.size() + size); };
    const std::string name = "dmd_dump_20834_101113.tar",
                      half = report("13", "b\n========Device Bugreport========\n[Da");
    // The files; of the reports found the second, the content and the number of places.
    const std::tuple<std::string, std::map<std::string, std::string>, std::string> cases[] = {
        {"in the record and an archive", {{R, a + b + c}, {name, tar(a + b)}}, "12 a 2\n13 bb 2\n14 c 1\n"},
        {"only in the archive", {{R, c}, {name, tar(a + b)}}, "12 a 1\n13 bb 1\n14 c 1\n"},
        {"twice in one file", {{R, a + a + b}, {name, tar(a + a)}}, "12 a 2\n12 a 2\n13 bb 1\n"},
        {"another content", {{R, a}, {"dmd_record_1.txt", a + "x"}}, "12 a 1\n12 ax 1\n"},
        {"the same in two records", {{R, a}, {"dmd_record_1.txt", a}}, "12 a 1\n12 a 1\n"},
        {"a text that ends in half a head",
         {{R, a + half + c}, {name, tar(a + half)}},
         "12 a 2\n13 b\n========Device Bugreport========\n[Da 1\n13 b 1\n14 c 1\n   |cut 1\n"},
        {"a head that is cut, and another report of its day",
         {{R, a + b}, {"dmd_record_1.txt", c + head("15").substr(0, 60)}},
         "   |cut 1\n12 a 1\n13 bb 1\n14 c 1\n"},
        {"a dump and its copy",
         {{"dmd_dump_00007_101112.txt", "x"}, {"copy/dmd_dump_00007_101112.txt", "x"}},
         "12  2\n"},
        {"a record that is cut",
         {{R, a + b.substr(0, b.size() - 1)}, {name, tar(a + b)}},
         "12 a 2\n13 b 1\n13 bb 1\n"},
        {"a cut one",
         {{R, a + b + c}, {name, cut_tar(b.size() - 1)}},
         "12 a 2\n13 bb 1\n13 b|cut 1\n14 c 1\n"},
        {"only cut", {{name, cut_tar(b.size() - 1)}}, "12 a 1\n13 b|cut 1\n"},
        {"cut in the next head", {{R, a + b}, {name, cut_tar(9)}}, "12 a 1\n12 a\n========|cut 1\n13 bb 1\n"},
        {"cut in the head", {{R, a + b}, {name, cut_tar(60)}}, "   |cut 1\n12 a 2\n13 bb 1\n"},
    };
    for (const auto& [what, files, expected] : cases) {
        enter_pulled();
        ASSERT_EQ(0, mkdir("copy", 0755));
        for (const auto& [path, bytes] : files) {
            write_file(path, bytes);
        }
        std::string found;
        for (const tools::Report& r : tools::collect_reports({".", "./" + R}).reports) {
            found += (r.time + "        ").substr(6, 2) + " " + r.content + (r.cut ? "|cut " : " ") +
                     std::to_string(r.places.size()) + "\n";
            EXPECT_TRUE(r.places.size() == 1 || r.places[0].member.empty()) << what;
            EXPECT_EQ(r.time == "10:11:13" && r.places.back().file == "./" + name, !r.archive.empty());
        }
        EXPECT_EQ(expected, found) << what;
    }
}

// Everything before the place where a file is cut is there, and a problem is named.
TEST(Report, GivesAllBeforeADamage) {
    std::minstd_rand random(1);
    std::string contents[3], record;
    for (std::string& content : contents) {
        while (content.size() < 30000) {
            content += static_cast<char>(' ' + random() % 64);
        }
        record += report(std::to_string(12 + (&content - contents)), content);
    }
    enter_pulled();
    write_file("whole", file(MEMBER, record) + file("data/log", "log") + END);
    ASSERT_EQ(0, system("gzip -k whole"));
    const std::string tar = read_file("whole"), gz = read_file("whole.gz");
    const std::string tar_name = "dmd_dump_20834_101114.tar", gz_name = tar_name + ".gz";
    // A file; how much of it is cut off at least; how many bytes before the cut may be missing.
    const std::tuple<std::string, std::string, size_t, size_t> cases[] = {
        {gz_name, gz, 1, 2000}, {tar_name, tar, 513, 512 + report("12", "").size()}};
    for (const auto& [name, bytes, cut_off, missing] : cases) {
        for (size_t size = 1; size <= bytes.size() - cut_off; size += 509) {
            write_file(name, bytes.substr(0, size));
            const tools::Collection collection = tools::collect_reports({name});
            size_t read = 0;
            for (const tools::Report& r : collection.reports) {
                const std::string& content = contents[r.number - 1];
                const bool is_last = &r == &collection.reports.back();
                EXPECT_EQ(content.substr(0, is_last ? r.content.size() : content.size()),
                          is_last ? r.content.substr(0, content.size()) : r.content);
                EXPECT_TRUE(is_last || !r.cut);
                read += r.content.size() + report("12", "").size();
            }
            EXPECT_FALSE(collection.problems.empty()) << size;
            EXPECT_GE(read + missing, std::min(size, record.size())) << size;
        }
    }
    for (size_t at = 0; at < gz.size(); at += 1019) {
        std::string changed = gz;
        changed[at] = static_cast<char>(changed[at] ^ 0x10);
        write_file(gz_name, changed);
        EXPECT_FALSE(tools::collect_reports({gz_name}).problems.empty()) << at;
    }
}

TEST(Report, SaysWhatCannotBeRead) {
    const std::string good = report("12", "x"), evil = "\x1b[2J\n";
    const std::string name = "dmd_dump_20834_101112.tar", gz = "dmd_dump_00001_000000.txt.gz";
    const std::string tar = file(MEMBER, good), device = header(evil, '3', "0", "", "020644", "1", "3");
    // What a shell does, a file and its bytes; the tool's status and what it says, or prints.
    const std::tuple<std::string, std::string, std::string, int, std::string> cases[] = {
        {":", R, good, 0, "\n1\t2015-06-01\t10:11:12\ttpdev\t20834\ton\t1\t./dmd_record_0.txt\t\n"},
        {":", "other", good, 1, "dmd-report: .: holds no file named "},
        {"mkfifo dmd_record_1.txt", R, good, 1, "./dmd_record_1.txt: is no regular file"},
        {"ln -s . loop; ln -s /dev/zero dmd_record_1.txt", R, good, 1, "is a symbolic link"},
        {":", R, "", 1, "./dmd_record_0.txt: is empty"},
        {":", R, "junk" + good, 1, "4 bytes before the first report"},
        {":", gz, "junk", 1, "is not compressed as its name says"},
        {":", name, "junk", 1, "holds no report, but 4 bytes of something else"},
        {"truncate -s 2G dmd_record_1.txt", R, good, 1, "holds a longer record than any phone"},
        {"head -c 64M /dev/zero | gzip > m; for i in $(seq 17); do cat m; done >" + gz, R, good, 1,
         "is read no further than its first GiB"},
        {"(echo | gzip | head -c -8; printf 12345678) >" + gz, R, good, 1, "has a wrong checksum"},
        {"(echo x | gzip; echo y | gzip; echo z) >" + gz, R, good, 1, "has bytes behind"},
        {":", name, tar, 1, "is cut: the archive has no end"},
        {":", name, tar + damaged(header("a")) + file("dmd_record_1.txt", report("13", "y")) + END, 1,
         "\n2\t2015-06-01\t10:11:13"},
        {":", name, tar + header("huge", '0', "77777777777") + END, 1, "is cut within huge"},
        {":", name, tar + device + END, 0, ""},
        {":", name, file("other", "x") + END, 0,
         "\n1\t1970-01-01\t10:11:12\t\t20834\t\t1\t./" + name + "\tdump\n"},
        {":", name, header(R, '2', "0", "/etc/passwd") + END, 0, "\tdump\n"},
    };
    for (const auto& [before, path, bytes, status, text] : cases) {
        SCOPED_TRACE(before + " " + path + " " + text);
        enter_pulled();
        ASSERT_EQ(0, system(before.c_str()));
        write_file(path, bytes);
        const Outcome outcome = run_report(".");
        EXPECT_EQ(status, outcome.status) << outcome.err;
        EXPECT_NE(std::string::npos, (outcome.out + outcome.err).find(text)) << outcome.out << outcome.err;
        EXPECT_EQ(status == 0, outcome.err.empty());
        EXPECT_TRUE(bytes.find(good) == std::string::npos || path == "other" ||
                    outcome.out.find("\n1\t2015-06-01\t10:11:12") != std::string::npos);
    }
    write_file(name, tar + device + END);
    const tools::Report named = tools::collect_reports({name}).reports.at(0);
    std::string shown;
    tools::show_report({true, false}, named, [&](std::string_view piece) { shown += piece; });
    EXPECT_NE(std::string::npos, shown.find("\\x1b[2J\\n, 0 bytes\n")) << shown;
}

TEST(Report, ChoosesAndRefuses) {
    enter_pulled();
    write_file(R, report("14", "c") + report("12", "\x1b\xc2\x9b", -5) + head("13", 7, "Lcd_Panel") +
                      "[Content]:\nb");
    write_file("dmd_dump_00007_101113.txt", "dump");
    // Arguments; the status, and the numbers of the reports in the table or a part of the message.
    const std::tuple<std::string, int, std::string> cases[] = {
        {"", 0, "1 2 3 4 "},
        {"--device tpdev", 0, "1 3 "},
        {"--device 'lcd_*' --device '?PDE*'", 0, "1 2 3 "},
        {"--error -5", 0, "1 "},
        {"--error -9--5 --error 8-20834", 0, "1 3 "},
        {"--error 7 --since 2015-06-01", 0, "2 "},
        {"--since 2015-06-01T10:11:13", 0, "2 3 "},
        {"--until '2015-06-01 10:11:13'", 0, "1 2 "},
        {"--until 2015-06-01 --since '2015-06-01 10:11'", 0, "1 2 3 "},
        {"--until '2015-06-01 10:10'", 1, ""},
        {"--since 2015-02-29", 2, "--since: \"2015-02-29\" is no day, as "},
        {"--show 5", 2, "there is no report 5: there are 4 reports"},
        {"--show 1 --error 7", 2, "and no filter"},
        {"--show ''", 2, "is no number of a report"},
        {"--html " + R, 1, "it is there and is no page"},
        {"--html x --json", 2, "goes with neither"},
        {"nosuch", 1, "nosuch: No such file or directory"},
        {">/dev/full", 1, "cannot write the output: No space left on device"},
        {">&-", 1, "cannot write the output: "},
        {"--html /dev/null", 1, "is no regular file"},
        {"--html nosuch/page", 1, "cannot write nosuch/page"},
        {"--help >/dev/full", 1, "cannot write the output"},
    };
    for (const auto& [arguments, status, expected] : cases) {
        const Outcome outcome = run_report(". " + arguments);
        EXPECT_EQ(status, outcome.status) << arguments << outcome.err;
        std::string numbers;
        std::istringstream lines(outcome.out.substr(outcome.out.find('\n') + 1));
        for (std::string line; std::getline(lines, line);) {
            numbers += line.substr(0, 1) + " ";
        }
        EXPECT_TRUE(outcome.err.empty() ? numbers == expected
                                        : outcome.err.find(expected) != std::string::npos)
            << arguments << "\n"
            << outcome.out << outcome.err;
    }
    EXPECT_TRUE(ends_with(run_report(". --show 4").out, "\n\nContent:\ndump"));
    EXPECT_EQ("dump", json::parse(run_report(". --json --show 4").out)["reports"][0]["kind"]);
    EXPECT_EQ(0, run_report(". --html page --since 2015-06-01").status);
    EXPECT_NE(std::string::npos, read_file("page").find("Lcd_Panel"));
    EXPECT_EQ((std::vector<std::string>{"dmd_dump_00007_101113.txt", R, "page"}), names_in("."));
}
