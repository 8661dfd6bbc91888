// SQLite with one idiom: the first failure of a transaction stays, everything behind it does nothing, and the
// commit reports it and takes the whole back.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

struct sqlite3;
struct sqlite3_stmt;

class database {
public:
    database() = default;
    ~database();
    database(const database &) = delete;
    database &operator=(const database &) = delete;

    enum class access { read_write, read_only };
    [[nodiscard]] const char *open(const std::string &path, access how);

    // Runs statements that give no rows.
    void run(const char *sql);
    // Takes the transaction back, whatever has failed.
    void roll_back();
    int64_t last_row_id() const;

    bool failed() const { return !failure_text.empty(); }
    // What has failed since the last call, or absent. Valid until the thread's second next format_error.
    const char *take_failure();

private:
    friend class query;
    sqlite3_stmt *statement(const char *sql);
    void note_failure();

    sqlite3 *handle = nullptr;
    std::map<std::string_view, sqlite3_stmt *> statements; // by their text, which is a literal
    std::string failure_text;
};

// One run of a statement. The text must be a literal, and no other run of the same text may be under way.
class query {
public:
    query(database &db, const char *sql);
    ~query();
    query(const query &) = delete;
    query &operator=(const query &) = delete;

    template <class... Values>
    query &with(const Values &...values) {
        (bind(values), ...);
        return *this;
    }
    // Moves to the next row. False behind the last one and on failure.
    bool row();
    // Runs a statement that gives no rows.
    void done() { row(); }

    int columns() const;
    int64_t integer(int column) const;
    double real(int column) const;
    std::string text(int column) const; // "" for NULL
    bool is_null(int column) const;
    std::variant<std::monostate, int32_t, double, std::string> value(int column) const;

private:
    void bind(int64_t value);
    void bind(int32_t value) { bind(int64_t{value}); }
    void bind(uint32_t value) { bind(int64_t{value}); }
    void bind(bool value) { bind(int64_t{value}); }
    void bind(double value);
    void bind(const std::string &value);
    void bind(std::nullptr_t);
    template <class Value>
    void bind(const std::optional<Value> &value) {
        if (value)
            bind(*value);
        else
            bind(nullptr);
    }
    void bind(const std::variant<std::monostate, int32_t, double, std::string> &value);
    void expect_ok(int code);

    database &db;
    sqlite3_stmt *statement;
    int next_parameter = 1;
};

// A transaction ends in commit(), or is taken back.
class transaction {
public:
    // A durable one has reached the disk when commit returns. Any other may be lost in a power cut, but never
    // in part.
    enum class durability { durable, relaxed };
    transaction(database &db, durability how);
    ~transaction();
    transaction(const transaction &) = delete;
    transaction &operator=(const transaction &) = delete;
    [[nodiscard]] const char *commit();

private:
    database &db;
    bool open = true;
};
