// The tables, and what happens to what is in them already.
#include "tools/report_database.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "platform/owned.h"
#include "tools/report_json.h"
#include "tools/terminal.h"

namespace tools {
namespace {

constexpr int PATIENCE = 5000;  // milliseconds that another program may keep the database to itself

// What tells a database of dmd-report from any other, and this form of it from later ones.
constexpr int64_t APPLICATION = 0x646d6452;
constexpr int64_t VERSION = 1;

// The comments are kept with the tables: ".schema" shows them.
constexpr char SCHEMA[] = R"(
CREATE TABLE phones (
    name TEXT PRIMARY KEY
) WITHOUT ROWID;
CREATE TABLE reports (
    id INTEGER PRIMARY KEY,
    phone TEXT NOT NULL REFERENCES phones (name),
    key TEXT NOT NULL,          -- the same for the same report of a phone, whenever it is added
    kind TEXT NOT NULL,         -- report; dump: a compressed dump of its own, whose device is not known
    date TEXT,                  -- YYYY-MM-DD on the phone; null when not known
    time TEXT,                  -- HH:MM:SS
    device TEXT,
    error INTEGER,
    name TEXT,                  -- of the error, from --names
    test_switch TEXT,
    bytes INTEGER NOT NULL,     -- of the content, of a dump uncompressed
    cut INTEGER NOT NULL,       -- 1: its end, or a part of its head, is missing
    damaged INTEGER NOT NULL,   -- 1: found in damaged files only
    archive TEXT,               -- the dump archive made for it
    attachments TEXT NOT NULL,  -- what that archive, or the dump, holds beside: JSON, [{"name": ..., "bytes": ...}]
    processes TEXT,
    content TEXT,               -- any text is a BLOB when it has a zero byte or is no UTF-8; null of a dump
    UNIQUE (phone, key)
);
CREATE INDEX reports_by_error ON reports (device, error, date, phone);
CREATE INDEX reports_by_date ON reports (date);
CREATE TABLE places (           -- where the reports stand
    report INTEGER NOT NULL REFERENCES reports (id),
    file TEXT NOT NULL,
    member TEXT NOT NULL,       -- of the file, which is an archive; otherwise empty
    damaged INTEGER NOT NULL,   -- 1: the file is
    PRIMARY KEY (report, file, member)
) WITHOUT ROWID;
CREATE TABLE problems (         -- what could not be read, and why
    phone TEXT NOT NULL,        -- empty when it is of none
    file TEXT NOT NULL,
    text TEXT NOT NULL,
    PRIMARY KEY (phone, file, text)
) WITHOUT ROWID;
)";

using Value = std::variant<std::nullptr_t, int64_t, std::string_view>;

Value or_null(const std::string& text) {
    return text.empty() ? Value(nullptr) : Value(text);
}

int bind(sqlite3_stmt* statement, int index, const Value& value) {
    if (const int64_t* const number = std::get_if<int64_t>(&value)) {
        return sqlite3_bind_int64(statement, index, *number);
    }
    const std::string_view* const text = std::get_if<std::string_view>(&value);
    if (text == nullptr) {
        return sqlite3_bind_null(statement, index);
    }
    // Many functions of SQL take a text to end at its first zero byte.
    const bool is_text = is_utf8(*text) && text->find('\0') == std::string::npos;
    return is_text
               ? sqlite3_bind_text64(statement, index, text->data(), text->size(), SQLITE_STATIC, SQLITE_UTF8)
               : sqlite3_bind_blob64(statement, index, text->data(), text->size(), SQLITE_STATIC);
}

}  // namespace

ReportDatabase::ReportDatabase(const std::string& path) : path_(path) {
    // SQLite does not say why, and opens what may only be read as well.
    if (!UniqueFd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)).valid()) {
        throw std::runtime_error(path + ": " + strerror(errno));
    }
    // To SQLite, some names are not those of files, such as ":memory:".
    const std::string file = (path[0] == '/' ? "" : "./") + path;
    sqlite3* opened = nullptr;
    const int result = sqlite3_open(file.c_str(), &opened);
    database_.reset(opened);
    require(result);
    require(sqlite3_busy_timeout(opened, PATIENCE));
    execute("PRAGMA cache_size = -32768");  // KiB
    execute("BEGIN IMMEDIATE");
    take_over();
    add_phone_ = prepare("INSERT OR IGNORE INTO phones VALUES (?)");
    find_report_ = prepare("SELECT id FROM reports WHERE phone = ? AND key = ?");
    add_report_ =
        prepare("INSERT INTO reports VALUES (NULL, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    // Where nothing changes, nothing is to be written.
    rename_report_ = prepare(
        "UPDATE reports SET device = ?2, name = ?3, damaged = min(damaged, ?4)"
        " WHERE id = ?1 AND (device IS NOT ?2 OR name IS NOT ?3 OR damaged > ?4)");
    add_archive_ = prepare(
        "UPDATE reports SET archive = ?2, attachments = ?3"
        " WHERE id = ?1 AND (archive IS NULL OR length(attachments) < length(?3))");
    add_place_ = prepare(
        "INSERT INTO places VALUES (?, ?, ?, ?)"
        " ON CONFLICT DO UPDATE SET damaged = excluded.damaged WHERE damaged <> excluded.damaged");
    add_problem_ = prepare("INSERT OR IGNORE INTO problems VALUES (?, ?, ?)");
}

void ReportDatabase::take_over() {
    const int64_t application = *run(prepare("PRAGMA application_id"));
    const int64_t version = *run(prepare("PRAGMA user_version"));
    const int64_t tables = *run(prepare("SELECT count(*) FROM sqlite_master"));
    if (application == 0 && version == 0 && tables == 0) {
        execute(SCHEMA);
        execute("PRAGMA application_id = " + std::to_string(APPLICATION));
        execute("PRAGMA user_version = " + std::to_string(VERSION));
    } else if (application != APPLICATION) {
        throw std::runtime_error(path_ + ": is no database of dmd-report");
    } else if (version != VERSION) {
        throw std::runtime_error(path_ + ": is a database of another version of dmd-report");
    }
}

void ReportDatabase::add(const PhoneReports& phone) {
    if (!phone.phone.empty()) {
        run(add_phone_, {phone.phone});
    }
    for (const Report& report : phone.reports) {
        const int64_t id = add(phone.phone, report);
        for (const ReportPlace& place : report.places) {
            run(add_place_, {id, place.file, place.member, place.damaged});
        }
    }
    for (const Problem& problem : phone.problems) {
        run(add_problem_, {problem.phone, problem.file, problem.text});
    }
}

int64_t ReportDatabase::add(const std::string& phone, const Report& report) {
    const bool is_dump = report.kind == ReportKind::DUMP;
    const Value device = has_device(report) ? Value(report.device) : Value(nullptr);
    const std::string attachments = text_of(json_of(report.attachments));
    if (const std::optional<int64_t> id = run(find_report_, {phone, report.key})) {
        run(rename_report_, {*id, device, or_null(report.error_name), report.damaged});
        if (!report.archive.empty()) {
            run(add_archive_, {*id, report.archive, attachments});
        }
        return *id;
    }
    run(add_report_,
        {phone, report.key, is_dump ? "dump" : "report", or_null(report.date), or_null(report.time), device,
         report.has_error_no ? Value(report.error_no) : Value(nullptr), or_null(report.error_name),
         or_null(report.test_switch), static_cast<int64_t>(report.bytes), report.cut, report.damaged,
         or_null(report.archive), attachments, or_null(report.processes),
         is_dump ? Value(nullptr) : Value(report.content)});
    return sqlite3_last_insert_rowid(database_.get());
}

void ReportDatabase::finish() {
    execute("COMMIT");
}

void ReportDatabase::require(int result) const {
    if (result != SQLITE_OK) {
        throw std::runtime_error(path_ + ": " + sqlite3_errmsg(database_.get()));
    }
}

void ReportDatabase::execute(const std::string& sql) const {
    require(sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr));
}

ReportDatabase::Statement ReportDatabase::prepare(const char* sql) const {
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_prepare_v2(database_.get(), sql, -1, &statement, nullptr));
    return Statement(statement);
}

std::optional<int64_t> ReportDatabase::run(const Statement& statement,
                                           std::initializer_list<Value> values) const {
    int index = 0;
    for (const Value& value : values) {
        require(bind(statement.get(), ++index, value));
    }
    std::optional<int64_t> number;
    if (sqlite3_step(statement.get()) == SQLITE_ROW) {
        number = sqlite3_column_int64(statement.get(), 0);
    }
    require(sqlite3_reset(statement.get()));  // gives the result of the step once more
    return number;
}

}  // namespace tools
