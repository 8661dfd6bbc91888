#include "server/sqlite_store.h"

#include "platform/errors.h"
#include "server/check_path.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>

namespace {

using durability = transaction::durability;

std::optional<std::string> text_or_null(const std::string &text) {
    return text.empty() ? std::nullopt : std::optional(text);
}

const char *name_of(check_kind kind) {
    static constexpr const char *names[] = {"continuous", "real continuous", "enumeration", "log"};
    return names[static_cast<size_t>(kind)];
}

// One digit a value.
std::optional<std::string> severities_text(const std::vector<uint32_t> &severities) {
    std::string text;
    for (uint32_t severity : severities)
        text += static_cast<char>('0' + severity);
    return text_or_null(text);
}

// The columns hold the build in the version's text alone.
constexpr const char *BUILD_WORD = " build ";

std::optional<int32_t> build_in(const std::string &version) {
    size_t at = version.find(BUILD_WORD);
    if (at == std::string::npos) return std::nullopt;
    return static_cast<int32_t>(strtol(version.c_str() + at + strlen(BUILD_WORD), nullptr, 10));
}

void save_group(database &db, int64_t agent_id, std::optional<int64_t> parent_id, const device_group &group) {
    query(db, "INSERT INTO groups (agent_id, parent_id, key, name, name_template, of_instances)"
              " VALUES (?, ?, ?, ?, ?, ?)")
        .with(agent_id, parent_id, group.id, group.name, group.name_template, group.of_instances)
        .done();
    int64_t group_id = db.last_row_id();
    for (const device &what : group.devices)
        query(db,
              "INSERT INTO devices (agent_id, group_id, key, name, comment, type, unit, hint_value, hint_min,"
              " hint_max, description) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
            .with(agent_id, group_id, what.id, what.name, what.comment, what.type, what.unit, what.hint_value,
                  what.hint_min, what.hint_max, what.description)
            .done();
    for (const device_group &child : group.groups)
        save_group(db, agent_id, group_id, child);
}

// The path of every group of an agent. A group's parent has the smaller id.
std::map<int64_t, std::vector<std::string>> load_group_paths(database &db, int64_t agent_id) {
    std::map<int64_t, std::vector<std::string>> paths;
    query groups(db, "SELECT id, parent_id, key FROM groups WHERE agent_id = ? ORDER BY id");
    groups.with(agent_id);
    while (groups.row()) {
        std::vector<std::string> path =
            groups.is_null(1) ? std::vector<std::string>() : paths[groups.integer(1)];
        path.push_back(groups.text(2));
        paths[groups.integer(0)] = path;
    }
    return paths;
}

std::optional<double> real_or_none(const query &row, int column) {
    return row.is_null(column) ? std::nullopt : std::optional(row.real(column));
}

device read_device_row(const query &row) {
    return {.id = row.text(1),
            .name = row.text(2),
            .comment = row.text(3),
            .type = static_cast<uint32_t>(row.integer(4)),
            .unit = row.text(5),
            .hint_value = real_or_none(row, 6),
            .hint_min = real_or_none(row, 7),
            .hint_max = real_or_none(row, 8),
            .description = static_cast<int32_t>(row.integer(9))};
}

void save_check(database &db, int64_t agent_id, const planned_check &check) {
    const check_limits &limits = check.conf.limits;
    query(db,
          "INSERT INTO checks (agent_id, path, name, family, configured, kind, frequency, alert_high, "
          "alert_low,"
          " warn_high, warn_low, severities, unit, description) VALUES (?, ?, ?, ?, 1, ?, ?, ?, ?, ?, ?, ?, "
          "?, ?)"
          " ON CONFLICT (agent_id, path) DO UPDATE SET configured = 1, kind = excluded.kind,"
          " frequency = excluded.frequency, alert_high = excluded.alert_high, alert_low = excluded.alert_low,"
          " warn_high = excluded.warn_high, warn_low = excluded.warn_low, severities = excluded.severities,"
          " unit = excluded.unit, description = excluded.description")
        .with(agent_id, full_check_name(check.path), plain_check_name(check.path), check.path.front(),
              std::string(name_of(check.conf.kind)), check.conf.frequency, limits.alert_high,
              limits.alert_low, limits.warn_high, limits.warn_low, severities_text(limits.severities),
              check.unit, check.description)
        .done();
}

} // namespace

const char *sqlite_store::find_agent(const std::string &name, const std::string &domain, agent_row *out) {
    std::lock_guard lock(mutex);
    *out = {.name = name, .domain = domain};
    {
        query row(
            db,
            "SELECT id, host_id, master_key, hallmark, proposed_key, prefer_proposed, may_rekey, scanned_at,"
            " scan_asked_at, configured_by, version FROM agents WHERE name = ? AND domain = ?");
        if (row.with(name, domain).row()) {
            out->id = row.integer(0);
            out->host_id = row.text(1);
            out->master_key = row.text(2);
            out->hallmark = row.text(3);
            out->proposed_key = row.text(4);
            out->prefer_proposed = row.integer(5) != 0;
            out->may_rekey = row.integer(6) != 0;
            out->scanned_at = row.integer(7);
            out->scan_asked_at = row.integer(8);
            out->configured_by = row.text(9);
            out->build = build_in(row.text(10));
        }
    }
    return db.take_failure();
}

const char *sqlite_store::count_agents(int64_t *out) {
    std::lock_guard lock(mutex);
    *out = 0;
    {
        query row(db, "SELECT count(*) FROM agents");
        if (row.row()) *out = row.integer(0);
    }
    return db.take_failure();
}

const char *sqlite_store::propose_key(agent_row *agent, const std::string &key, int64_t now) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::durable);
    query(db, "INSERT INTO agents (name, domain, host_id, registered_at, last_seen) VALUES (?, ?, ?, ?, ?)"
              " ON CONFLICT (name, domain) DO NOTHING")
        .with(agent->name, agent->domain, agent->host_id, now, now)
        .done();
    query(db, "UPDATE agents SET proposed_key = ?, prefer_proposed = 1 WHERE name = ? AND domain = ?")
        .with(key, agent->name, agent->domain)
        .done();
    int64_t id = 0;
    std::string host_id;
    {
        query row(db, "SELECT id, host_id FROM agents WHERE name = ? AND domain = ?");
        if (row.with(agent->name, agent->domain).row()) {
            id = row.integer(0);
            host_id = row.text(1);
        }
    }
    if (auto *failure = work.commit()) return failure;
    agent->id = id;
    agent->host_id = host_id;
    agent->proposed_key = key;
    agent->prefer_proposed = true;
    return nullptr;
}

const char *sqlite_store::prove_agent(const agent_row &agent, const std::string &key,
                                      const std::string &hallmark, int64_t now) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::durable);
    query(db, "UPDATE agents SET master_key = ?, hallmark = ?, proposed_key = NULL, prefer_proposed = 0,"
              " may_rekey = may_rekey AND ? = coalesce(master_key, ''), last_seen = ? WHERE id = ?")
        .with(key, hallmark, key, now, agent.id)
        .done();
    return work.commit();
}

const char *sqlite_store::disprove_agent(const agent_row &agent) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    query(db, "UPDATE agents SET hallmark = NULL, prefer_proposed = NOT prefer_proposed WHERE id = ?")
        .with(agent.id)
        .done();
    return work.commit();
}

const char *sqlite_store::save_host(int64_t agent_id, const build_numbers &build,
                                    const std::vector<host_line> &lines, const std::string &address,
                                    int64_t now) {
    std::string version = std::to_string(build.major) + "." + std::to_string(build.minor) + BUILD_WORD +
                          std::to_string(build.build);
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    query(db, "UPDATE agents SET package_id = ?, version = ?, address = ?, last_seen = ? WHERE id = ?")
        .with(build.package_id, version, address, now, agent_id)
        .done();
    query(db, "DELETE FROM host_info WHERE agent_id = ?").with(agent_id).done();
    int64_t position = 0;
    for (const host_line &line : lines)
        query(db, "INSERT INTO host_info (agent_id, position, label, value) VALUES (?, ?, ?, ?)")
            .with(agent_id, position++, line.label, line.value)
            .done();
    return work.commit();
}

const char *sqlite_store::save_offer(int64_t agent_id, const std::vector<device_group> &tree,
                                     const std::vector<check_description> &descriptions, int64_t now) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    query(db, "DELETE FROM devices WHERE agent_id = ?").with(agent_id).done();
    query(db, "DELETE FROM groups WHERE agent_id = ?").with(agent_id).done();
    query(db, "DELETE FROM descriptions WHERE agent_id = ?").with(agent_id).done();
    for (const device_group &group : tree)
        save_group(db, agent_id, std::nullopt, group);
    for (const check_description &entry : descriptions)
        query(db, "INSERT OR REPLACE INTO descriptions (agent_id, number, good, warning, alert) VALUES (?, "
                  "?, ?, ?, ?)")
            .with(agent_id, entry.id, entry.good, entry.warning, entry.alert)
            .done();
    query(db, "UPDATE agents SET scanned_at = ? WHERE id = ?").with(now, agent_id).done();
    return work.commit();
}

const char *sqlite_store::load_offer(int64_t agent_id, std::vector<offered_device> *out) {
    std::lock_guard lock(mutex);
    out->clear();
    {
        std::map<int64_t, std::vector<std::string>> groups = load_group_paths(db, agent_id);
        query row(
            db, "SELECT group_id, key, name, comment, type, unit, hint_value, hint_min, hint_max, description"
                " FROM devices WHERE agent_id = ? ORDER BY id");
        row.with(agent_id);
        while (row.row()) {
            offered_device offered = {groups[row.integer(0)], read_device_row(row)};
            offered.path.push_back(offered.what.id);
            out->push_back(std::move(offered));
        }
    }
    return db.take_failure();
}

const char *sqlite_store::save_checks(int64_t agent_id, const std::vector<planned_check> &checks) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    query(db, "UPDATE agents SET configured_by = '' WHERE id = ?").with(agent_id).done();
    query(db, "UPDATE checks SET configured = 0 WHERE agent_id = ? AND configured <> 0")
        .with(agent_id)
        .done();
    for (const planned_check &check : checks)
        save_check(db, agent_id, check);
    return work.commit();
}

const char *sqlite_store::set_configured(int64_t agent_id, const std::string &fingerprint) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    query(db, "UPDATE agents SET configured_by = ? WHERE id = ?").with(fingerprint, agent_id).done();
    return work.commit();
}

const char *sqlite_store::note_scan_asked(int64_t agent_id, int64_t now) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    query(db, "UPDATE agents SET scan_asked_at = ? WHERE id = ?").with(now, agent_id).done();
    return work.commit();
}

const char *sqlite_store::save_downtime(int64_t agent_id, int32_t minutes, int64_t now) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::durable);
    query(db, "INSERT INTO downtimes (agent_id, requested_at, minutes, ends_at) VALUES (?, ?, ?, ?)")
        .with(agent_id, now, minutes, now + int64_t{minutes} * 60)
        .done();
    return work.commit();
}

const char *sqlite_store::allow_rekey(const std::string &name, const std::string &domain, bool *out_found) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::durable);
    query(db, "UPDATE agents SET may_rekey = 1 WHERE name = ? AND domain = ?").with(name, domain).done();
    {
        query changed(db, "SELECT changes()");
        *out_found = changed.row() && changed.integer(0) != 0;
    }
    return work.commit();
}
