// The database of dmd-report --sqlite: what adding to it changes, and what it refuses.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <stdexcept>

#include <sqlite3.h>

#include "tests/phone_test.h"
#include "tools/report_database.h"

namespace {

using tools::PhoneReports;
using tools::Report;
using tools::ReportDatabase;

const std::string PATH = "/tmp/reports.db";

Report report(const std::string& key) {
    Report report;
    report.key = key;
    report.date = "2026-11-25";
    report.time = "10:11:12";
    report.device = "tpdev";
    report.error_no = 20002;
    report.content = "no answer";
    report.places = {{"pulled/dmd_record_0.txt", "", false}};
    return report;
}

void add(const PhoneReports& phone) {
    ReportDatabase database(PATH);
    database.add(phone);
    database.finish();
}

// Executes the SQL in the database and returns its rows, with "|" between the columns and an end of line
// behind each.
std::string sql(const std::string& text) {
    sqlite3* database = nullptr;
    std::string rows;
    const auto take = [](void* context, int columns, char** values, char**) {
        for (int i = 0; i < columns; ++i) {
            *static_cast<std::string*>(context) +=
                (i > 0 ? "|" : "") + std::string(values[i] ? values[i] : "null");
        }
        *static_cast<std::string*>(context) += "\n";
        return 0;
    };
    const bool done = sqlite3_open(PATH.c_str(), &database) == SQLITE_OK &&
                      sqlite3_exec(database, text.c_str(), take, &rows, nullptr) == SQLITE_OK;
    EXPECT_TRUE(done) << sqlite3_errmsg(database);
    sqlite3_close(database);
    return rows;
}

// Why the database cannot be added to; empty when it can.
std::string refusal() {
    try {
        add({"phone", {report("a")}, {}, 1});
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

class Database : public testing::Test {
  protected:
    void SetUp() override { unlink(PATH.c_str()); }
};

}  // namespace

TEST_F(Database, IsTheSameWhenAPullIsAddedAgain) {
    Report dump = report("b");
    dump.kind = tools::ReportKind::DUMP;
    dump.device.clear();
    dump.attachments = {{"data/x", 2}};
    Report packed = report("c");
    packed.places.push_back({"pulled/dmd_dump_20002_101112.tar.gz", "dmd_record_0.txt", true});
    packed.archive = packed.places[1].file;
    const PhoneReports phone = {"phone", {report("a"), dump, packed}, {{"phone", "pulled/x", "is empty"}}, 3};
    add(phone);
    const std::string bytes = read_file(PATH);
    add(phone);
    EXPECT_EQ(bytes, read_file(PATH));
    add({"other", phone.reports, {}, 3});
    EXPECT_EQ("other|3\nphone|3\n", sql("SELECT phone, count(*) FROM reports GROUP BY phone"));
}

TEST_F(Database, TakesWhatIsNewOfAKnownReport) {
    const auto nothing = [](Report*) {};
    const auto damaged = [](Report* report) { report->damaged = report->places[0].damaged = true; };
    const auto named = [](Report* report) { report->error_name = "silent", report->device = "touch"; };
    const auto damaged_and_named = [&](Report* report) { damaged(report), named(report); };
    const auto packed = [](Report* report) {
        report->archive = "a.tar.gz";
        report->attachments = {{"x", 1}};
    };
    const auto packed_fuller = [](Report* report) {
        report->archive = "b.tar.gz";
        report->attachments = {{"x", 1}, {"y", 1}};
    };
    const auto elsewhere = [](Report* report) { report->places[0].file = "again/dmd_record_0.txt"; };
    const struct {
        std::string what;
        std::function<void(Report*)> first, second;
        std::string columns;
        std::string wanted;
    } cases[] = {
        {"whole after damaged", damaged, nothing, "reports.damaged, places.damaged", "0|0\n"},
        {"damaged after whole", nothing, damaged, "reports.damaged, places.damaged", "0|1\n"},
        {"names", nothing, named, "device, name", "touch|silent\n"},
        {"names, in a damaged file", nothing, damaged_and_named, "name, reports.damaged", "silent|0\n"},
        {"no names any more", named, nothing, "device, name", "tpdev|null\n"},
        {"an archive", nothing, packed, "archive", "a.tar.gz\n"},
        {"no archive any more", packed, nothing, "archive", "a.tar.gz\n"},
        {"a fuller archive", packed, packed_fuller, "archive, json_array_length(attachments)",
         "b.tar.gz|2\n"},
        {"a lesser archive", packed_fuller, packed, "archive, json_array_length(attachments)",
         "b.tar.gz|2\n"},
        {"a place", nothing, elsewhere, "file", "again/dmd_record_0.txt\npulled/dmd_record_0.txt\n"},
    };
    for (const auto& c : cases) {
        unlink(PATH.c_str());
        for (const auto& change : {c.first, c.second}) {
            Report changed = report("a");
            change(&changed);
            add({"phone", {changed}, {}, 1});
        }
        EXPECT_EQ(c.wanted, sql("SELECT " + c.columns + " FROM reports JOIN places ON report = id"))
            << c.what;
    }
}

TEST_F(Database, HoldsAnyBytes) {
    std::vector<Report> reports;
    for (const std::string& content : {std::string("\u6f22"), std::string("\xff"), std::string("a\0b", 3)}) {
        reports.push_back(report(std::to_string(reports.size())));
        reports.back().content = content;
    }
    add({"phone", reports, {}, 1});
    EXPECT_EQ("text|E6BCA2\nblob|FF\nblob|610062\n",
              sql("SELECT typeof(content), hex(content) FROM reports"));
}

TEST_F(Database, IsAsItWasAfterARunThatIsKilled) {
    add({"phone", {report("a")}, {}, 1});
    const std::string before = sql("SELECT * FROM reports; SELECT * FROM phones; SELECT * FROM places");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ReportDatabase database(PATH);
        Report large = report("b");
        large.content = std::string(1 << 20, 'x');
        for (int i = 0; i < 64; ++i) {  // more than its memory holds: some stands in the file already
            large.key = std::to_string(i);
            database.add({"other", {large}, {}, 1});
        }
        raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_EQ(SIGKILL, WTERMSIG(status));
    ASSERT_GT(status_of(PATH).st_size, 1 << 20);
    EXPECT_EQ(before, sql("SELECT * FROM reports; SELECT * FROM phones; SELECT * FROM places"));
    EXPECT_EQ("", refusal());
}

TEST_F(Database, RefusesWhatIsNotItsOwn) {
    EXPECT_EQ("", refusal()) << "a file that is not there";
    write_file(PATH, "");
    EXPECT_EQ("", refusal()) << "an empty file";
    const struct {
        std::function<void()> make;
        std::string said;
    } cases[] = {
        {[] { write_file(PATH, "notes"); }, "file is not a database"},
        {[] { write_file(PATH, std::string(5000, 'x')); }, "file is not a database"},
        {[] { sql("CREATE TABLE phones (name)"); }, "is no database of dmd-report"},
        {[] { sql("PRAGMA user_version = 1"); }, "is no database of dmd-report"},
        {[] {
             add({"phone", {}, {}, 1}), sql("PRAGMA user_version = 2");
         },
         "of another version of dmd-report"},
    };
    for (const auto& c : cases) {
        unlink(PATH.c_str());
        c.make();
        const std::string bytes = read_file(PATH);
        const std::string said = refusal();
        EXPECT_EQ(1, count_of(said, PATH + ": ")) << said;
        EXPECT_EQ(1, count_of(said, c.said)) << said;
        EXPECT_EQ(bytes, read_file(PATH)) << c.said;
    }
    unlink(PATH.c_str());
    ASSERT_EQ(0, mkdir(PATH.c_str(), 0755));
    EXPECT_EQ(PATH + ": Is a directory", refusal());
    rmdir(PATH.c_str());
}

TEST_F(Database, WaitsForAnotherButNotForEver) {
    ReportDatabase other(PATH);
    EXPECT_EQ(PATH + ": database is locked", refusal());
}
