// A database of reports that grows with each pull.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <sqlite3.h>

#include "tools/phone_reports.h"

namespace tools {

struct SqliteCloser {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

// An SQLite database, with a row for each report of a phone however often that is added. One object is one
// transaction: nobody else sees what it adds before it is finished, and nothing remains of it if that never
// happens. Everything here throws std::runtime_error when it cannot be done.
class ReportDatabase {
  public:
    // Opens the database, or makes it. Refuses a file that is something else, and does not touch that.
    explicit ReportDatabase(const std::string& path);

    // Leaves what is there already, with these exceptions: the names of devices and errors become those of
    // this run; a report that was known from damaged files only loses that mark when it stands in another
    // one; a fuller archive takes the place of a lesser one. Without the name of a phone there can be no
    // reports, only problems.
    void add(const PhoneReports& phone);

    void finish();

  private:
    using Value = std::variant<std::nullptr_t, int64_t, std::string_view>;
    using Statement = std::unique_ptr<sqlite3_stmt, SqliteCloser>;

    void require(int result) const;
    void execute(const std::string& sql) const;
    Statement prepare(const char* sql) const;
    // Returns the number that the statement gives; nothing when it gives none.
    std::optional<int64_t> run(const Statement& statement, std::initializer_list<Value> values = {}) const;
    void take_over();
    int64_t add(const std::string& phone, const Report& report);

    std::string path_;
    std::unique_ptr<sqlite3, SqliteCloser> database_;
    Statement add_phone_, find_report_, add_report_, rename_report_, add_archive_, add_place_, add_problem_;
};

}  // namespace tools
