// The tables of the store, and how its file is told from others.
#include "server/sqlite_store.h"

#include "platform/errors.h"
#include "server/store_file.h"

// "tnsv", by which a store is told from other SQLite files.
static constexpr int64_t APPLICATION_ID = 0x746E7376;
static constexpr int64_t SCHEMA_VERSION = 2;

static constexpr const char *SCHEMA = R"(
CREATE TABLE agents (
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL,
    domain TEXT NOT NULL,
    host_id TEXT NOT NULL UNIQUE,
    master_key TEXT,
    hallmark TEXT,
    proposed_key TEXT,
    prefer_proposed INTEGER NOT NULL DEFAULT 0,
    may_rekey INTEGER NOT NULL DEFAULT 0,
    registered_at INTEGER NOT NULL,
    last_seen INTEGER NOT NULL,
    address TEXT,
    package_id INTEGER,
    version TEXT,
    scanned_at INTEGER NOT NULL DEFAULT 0,
    scan_asked_at INTEGER NOT NULL DEFAULT 0,
    configured_by TEXT NOT NULL DEFAULT '',
    deliveries INTEGER NOT NULL DEFAULT 0,
    UNIQUE (name, domain)
);
CREATE TABLE host_info (
    agent_id INTEGER NOT NULL REFERENCES agents ON DELETE CASCADE,
    position INTEGER NOT NULL,
    label TEXT NOT NULL,
    value TEXT NOT NULL,
    PRIMARY KEY (agent_id, position)
) WITHOUT ROWID;
CREATE TABLE groups (
    id INTEGER PRIMARY KEY,
    agent_id INTEGER NOT NULL REFERENCES agents ON DELETE CASCADE,
    parent_id INTEGER REFERENCES groups ON DELETE CASCADE,
    key TEXT NOT NULL,
    name TEXT NOT NULL,
    name_template TEXT NOT NULL,
    of_instances INTEGER NOT NULL
);
CREATE INDEX groups_of_agent ON groups (agent_id);
CREATE INDEX groups_of_parent ON groups (parent_id);
CREATE TABLE devices (
    id INTEGER PRIMARY KEY,
    agent_id INTEGER NOT NULL REFERENCES agents ON DELETE CASCADE,
    group_id INTEGER NOT NULL REFERENCES groups ON DELETE CASCADE,
    key TEXT NOT NULL,
    name TEXT NOT NULL,
    comment TEXT NOT NULL,
    type INTEGER NOT NULL,
    unit TEXT NOT NULL,
    hint_value REAL,
    hint_min REAL,
    hint_max REAL,
    description INTEGER NOT NULL
);
CREATE INDEX devices_of_agent ON devices (agent_id);
CREATE INDEX devices_of_group ON devices (group_id);
CREATE TABLE descriptions (
    agent_id INTEGER NOT NULL REFERENCES agents ON DELETE CASCADE,
    number INTEGER NOT NULL,
    good TEXT NOT NULL,
    warning TEXT NOT NULL,
    alert TEXT NOT NULL,
    PRIMARY KEY (agent_id, number)
) WITHOUT ROWID;
CREATE TABLE checks (
    id INTEGER PRIMARY KEY,
    agent_id INTEGER NOT NULL REFERENCES agents ON DELETE CASCADE,
    path TEXT NOT NULL,
    name TEXT NOT NULL,
    family TEXT NOT NULL,
    configured INTEGER NOT NULL,
    kind TEXT,
    frequency INTEGER,
    alert_high REAL,
    alert_low REAL,
    warn_high REAL,
    warn_low REAL,
    severities TEXT,
    unit TEXT NOT NULL DEFAULT '',
    description INTEGER,
    UNIQUE (agent_id, path)
);
CREATE TABLE results (
    id INTEGER PRIMARY KEY,
    agent_id INTEGER NOT NULL REFERENCES agents ON DELETE CASCADE,
    check_id INTEGER NOT NULL REFERENCES checks ON DELETE CASCADE,
    check_time INTEGER NOT NULL,
    skew INTEGER NOT NULL,
    status INTEGER NOT NULL,
    value,
    comment TEXT NOT NULL,
    conf_id TEXT,
    received_at INTEGER NOT NULL,
    unsettled INTEGER NOT NULL
);
CREATE INDEX results_of_check ON results (check_id, check_time);
CREATE INDEX results_unsettled ON results (agent_id) WHERE unsettled <> 0;
CREATE TABLE downtimes (
    id INTEGER PRIMARY KEY,
    agent_id INTEGER NOT NULL REFERENCES agents ON DELETE CASCADE,
    requested_at INTEGER NOT NULL,
    minutes INTEGER NOT NULL,
    ends_at INTEGER NOT NULL
);
CREATE INDEX downtimes_of_agent ON downtimes (agent_id, ends_at);
)";

// What version 2 has added.
static constexpr const char *ACTIONS = R"(
CREATE TABLE actions (
    id INTEGER PRIMARY KEY,
    agent_id INTEGER NOT NULL REFERENCES agents ON DELETE CASCADE,
    name TEXT NOT NULL,
    ordered_at INTEGER NOT NULL,
    sent_at INTEGER,
    taken_at INTEGER,
    pruned_at INTEGER
);
CREATE INDEX actions_waiting ON actions (agent_id) WHERE sent_at IS NULL;
CREATE INDEX actions_held ON actions (agent_id) WHERE taken_at IS NOT NULL AND pruned_at IS NULL;
)";

static int64_t pragma(database &db, const char *sql) {
    query found(db, sql);
    return found.row() ? found.integer(0) : 0;
}

// Absent for an empty file, which has version 0, and for a store that this program understands.
static const char *judge_file(database &db, const std::string &path, int64_t *out_version) {
    int64_t application = pragma(db, "PRAGMA application_id");
    int64_t version = pragma(db, "PRAGMA user_version");
    int64_t tables = pragma(db, "SELECT count(*) FROM sqlite_master");
    if (auto *failure = db.take_failure()) return format_error("%s: %s", path.c_str(), failure);
    bool is_empty = application == 0 && version == 0 && tables == 0;
    *out_version = is_empty ? 0 : version;
    if (!is_empty && application != APPLICATION_ID)
        return format_error("%s is not a store of this program", path.c_str());
    if (version > SCHEMA_VERSION)
        return format_error("the store %s was made by a newer tnserver", path.c_str());
    return nullptr;
}

static const char *make_tables(database &db, int64_t version) {
    transaction work(db, transaction::durability::durable);
    if (version < 1) db.run(SCHEMA);
    db.run(ACTIONS);
    static_assert(APPLICATION_ID == 1953395574 && SCHEMA_VERSION == 2);
    db.run("PRAGMA application_id = 1953395574");
    db.run("PRAGMA user_version = 2");
    return work.commit();
}

const char *sqlite_store::open(const std::string &path) {
    std::lock_guard lock(mutex);
    if (path != ":memory:")
        if (auto *failure = prepare_store_file(path)) return failure;
    if (auto *failure = db.open(path, database::access::read_write)) return failure;
    int64_t version = 0;
    if (auto *failure = judge_file(db, path, &version)) return failure;
    db.run("PRAGMA foreign_keys = ON");
    { query(db, "PRAGMA journal_mode = WAL").row(); }
    if (version < SCHEMA_VERSION)
        if (auto *failure = make_tables(db, version)) return failure;
    return db.take_failure();
}

const char *open_store_for_reading(const std::string &path, database *out) {
    int64_t version = 0;
    if (auto *failure = out->open(path, database::access::read_only)) return failure;
    if (auto *failure = judge_file(*out, path, &version)) return failure;
    if (version == 0) return format_error("%s is empty", path.c_str());
    if (version < SCHEMA_VERSION)
        return format_error("the store %s was made by an older tnserver: let this one serve with it first",
                            path.c_str());
    return nullptr;
}
