#include "server/database.h"

#include "platform/errors.h"

#include <sqlite3.h>

static constexpr int BUSY_TIMEOUT_MS = 5000;

database::~database() {
    for (auto &[sql, statement] : statements)
        sqlite3_finalize(statement);
    sqlite3_close(handle);
}

const char *database::open(const std::string &path, access how) {
    int flags = how == access::read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    if (sqlite3_open_v2(path.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK)
        return format_error("cannot open the store %s: %s", path.c_str(), sqlite3_errmsg(handle));
    sqlite3_busy_timeout(handle, BUSY_TIMEOUT_MS);
    return nullptr;
}

void database::note_failure() {
    if (failure_text.empty()) failure_text = sqlite3_errmsg(handle);
}

const char *database::take_failure() {
    if (failure_text.empty()) return nullptr;
    const char *failure = format_error("the store failed: %s", failure_text.c_str());
    failure_text.clear();
    return failure;
}

void database::roll_back() {
    sqlite3_exec(handle, "ROLLBACK", nullptr, nullptr, nullptr); // fails where SQLite has done it already
    failure_text.clear();
}

void database::run(const char *sql) {
    if (!failed() && sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) != SQLITE_OK) note_failure();
}

int64_t database::last_row_id() const {
    return sqlite3_last_insert_rowid(handle);
}

sqlite3_stmt *database::statement(const char *sql) {
    sqlite3_stmt *&found = statements[sql];
    if (found == nullptr &&
        sqlite3_prepare_v3(handle, sql, -1, SQLITE_PREPARE_PERSISTENT, &found, nullptr) != SQLITE_OK)
        note_failure();
    return found;
}

query::query(database &of, const char *sql) : db(of), statement(of.failed() ? nullptr : of.statement(sql)) {}

query::~query() {
    if (statement == nullptr) return;
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
}

bool query::row() {
    if (statement == nullptr || db.failed()) return false;
    int code = sqlite3_step(statement);
    if (code != SQLITE_ROW && code != SQLITE_DONE) db.note_failure();
    return code == SQLITE_ROW;
}

void query::expect_ok(int code) {
    if (code != SQLITE_OK) db.note_failure();
}

void query::bind(int64_t value) {
    if (statement != nullptr) expect_ok(sqlite3_bind_int64(statement, next_parameter++, value));
}

void query::bind(double value) {
    if (statement != nullptr) expect_ok(sqlite3_bind_double(statement, next_parameter++, value));
}

void query::bind(const std::string &value) {
    // SQLite copies, so that a caller may bind a text that dies before the statement runs.
    if (statement != nullptr)
        expect_ok(sqlite3_bind_text64(statement, next_parameter++, value.data(), value.size(),
                                      SQLITE_TRANSIENT, SQLITE_UTF8));
}

void query::bind(std::nullptr_t) {
    if (statement != nullptr) expect_ok(sqlite3_bind_null(statement, next_parameter++));
}

void query::bind(const std::variant<std::monostate, int32_t, double, std::string> &value) {
    if (auto *number = std::get_if<int32_t>(&value))
        bind(*number);
    else if (auto *real = std::get_if<double>(&value))
        bind(*real);
    else if (auto *text = std::get_if<std::string>(&value))
        bind(*text);
    else
        bind(nullptr);
}

int query::columns() const {
    return sqlite3_column_count(statement);
}

int64_t query::integer(int column) const {
    return sqlite3_column_int64(statement, column);
}

double query::real(int column) const {
    return sqlite3_column_double(statement, column);
}

std::string query::text(int column) const {
    auto *bytes = reinterpret_cast<const char *>(sqlite3_column_text(statement, column));
    return bytes != nullptr ? std::string(bytes, static_cast<size_t>(sqlite3_column_bytes(statement, column)))
                            : "";
}

bool query::is_null(int column) const {
    return sqlite3_column_type(statement, column) == SQLITE_NULL;
}

std::variant<std::monostate, int32_t, double, std::string> query::value(int column) const {
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
        return static_cast<int32_t>(integer(column));
    case SQLITE_FLOAT:
        return real(column);
    case SQLITE_TEXT:
        return text(column);
    default:
        return {};
    }
}

transaction::transaction(database &on, durability how) : db(on) {
    db.run(how == durability::durable ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
    db.run("BEGIN IMMEDIATE");
    open = !db.failed();
}

transaction::~transaction() {
    if (open) db.roll_back();
}

const char *transaction::commit() {
    db.run("COMMIT");
    if (!db.failed()) open = false;
    return db.take_failure();
}
