// The results in the store, and which of them may come again.
#include "server/sqlite_store.h"

#include "server/check_path.h"
#include "server/repeats.h"

#include <map>

namespace {

using durability = transaction::durability;

// How many results go in one step, so that nobody waits long for the store.
constexpr int64_t REMOVAL_STEP = 5000;

struct known_check {
    int64_t id = 0;
    std::string unit;
};

known_check look_up_check(database &db, int64_t agent_id, const std::string &path) {
    query row(db, "SELECT id, unit FROM checks WHERE agent_id = ? AND path = ?");
    return row.with(agent_id, path).row() ? known_check{row.integer(0), row.text(1)} : known_check();
}

// A result of a check that is not configured any more, or was by an older store, gets a check to belong to.
known_check find_check(database &db, int64_t agent_id, const std::vector<std::string> &path) {
    std::string full_name = full_check_name(path);
    known_check found = look_up_check(db, agent_id, full_name);
    if (found.id != 0) return found;
    query(db, "INSERT INTO checks (agent_id, path, name, family, configured) VALUES (?, ?, ?, ?, 0)")
        .with(agent_id, full_name, plain_check_name(path), path.front())
        .done();
    return {db.last_row_id(), ""};
}

// The checks that the results belong to, in the results' order.
std::vector<known_check> find_checks(database &db, const delivery &delivery) {
    std::map<std::vector<std::string>, known_check> known;
    std::vector<known_check> checks;
    for (const check_result &result : delivery.results) {
        auto [place, is_new] = known.try_emplace(result.path);
        if (is_new) place->second = find_check(db, delivery.agent_id, result.path);
        checks.push_back(place->second);
    }
    return checks;
}

std::vector<held_result> load_held(database &db, int64_t agent_id) {
    std::vector<held_result> held;
    query row(db, "SELECT id, check_id, check_time + skew, check_time, status, value FROM results"
                  " WHERE agent_id = ? AND unsettled <> 0 ORDER BY id");
    row.with(agent_id);
    while (row.row())
        held.push_back({.id = row.integer(0),
                        .check_id = row.integer(1),
                        .agent_time = row.integer(2),
                        .check_time = row.integer(3),
                        .status = static_cast<uint32_t>(row.integer(4)),
                        .value = row.value(5)});
    return held;
}

repeat_verdict judge(database &db, const delivery &delivery, const std::vector<known_check> &checks) {
    std::vector<delivered_result> delivered;
    for (size_t i = 0; i < delivery.results.size(); i++) {
        const check_result &result = delivery.results[i];
        delivered.push_back({.check_id = checks[i].id,
                             .agent_time = int64_t{result.check_time} + delivery.skew,
                             .status = result.status,
                             .value = &result.value});
    }
    return find_repeats(load_held(db, delivery.agent_id), delivered, delivery.received_at);
}

void settle_all(database &db, int64_t agent_id) {
    query(db, "UPDATE results SET unsettled = 0 WHERE agent_id = ? AND unsettled <> 0").with(agent_id).done();
}

void set_unsettled(database &db, int64_t result_id, int64_t number) {
    query(db, "UPDATE results SET unsettled = ? WHERE id = ?").with(number, result_id).done();
}

void insert_result(database &db, const delivery &delivery, const check_result &result, int64_t check_id,
                   int64_t number) {
    query(db, "INSERT INTO results (agent_id, check_id, check_time, skew, status, value, comment, conf_id,"
              " received_at, unsettled) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .with(delivery.agent_id, check_id, result.check_time, delivery.skew, result.status, result.value,
              result.comment, result.conf_id, delivery.received_at, number)
        .done();
}

// The delivery's number, counted by agent from 1 on.
int64_t next_number(database &db, int64_t agent_id, int64_t now) {
    query(db, "UPDATE agents SET deliveries = deliveries + 1, last_seen = ? WHERE id = ?")
        .with(now, agent_id)
        .done();
    query row(db, "SELECT deliveries FROM agents WHERE id = ?");
    return row.with(agent_id).row() ? row.integer(0) : 0;
}

} // namespace

const char *sqlite_store::save_delivery(const delivery &delivery, stored_delivery *out) {
    std::lock_guard lock(mutex);
    transaction work(db, delivery.results.empty() ? durability::relaxed : durability::durable);
    std::vector<known_check> checks = find_checks(db, delivery);
    repeat_verdict verdict = judge(db, delivery, checks);
    *out = {.number = next_number(db, delivery.agent_id, delivery.received_at)};
    if (!verdict.repetition) settle_all(db, delivery.agent_id);
    for (int64_t dropped : verdict.dropped)
        set_unsettled(db, dropped, 0);
    for (size_t i = 0; i < delivery.results.size(); i++) {
        if (verdict.repeats[i] != 0) {
            set_unsettled(db, verdict.repeats[i], out->number);
            continue;
        }
        insert_result(db, delivery, delivery.results[i], checks[i].id, out->number);
        out->fresh.push_back({.index = i, .unit = checks[i].unit});
    }
    return work.commit();
}

const char *sqlite_store::settle_delivery(int64_t agent_id, int64_t number) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    query(db, "UPDATE results SET unsettled = 0 WHERE agent_id = ? AND unsettled <> 0 AND unsettled = ?")
        .with(agent_id, number)
        .done();
    return work.commit();
}

const char *sqlite_store::settle_agent(int64_t agent_id) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    settle_all(db, agent_id);
    return work.commit();
}

const char *sqlite_store::remove_results_before(int64_t limit, bool *out_more) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    // Results stand in the order of their arrival, so the old ones are the first.
    query(db,
          "DELETE FROM results WHERE id IN (SELECT id FROM results ORDER BY id LIMIT ?) AND received_at < ?")
        .with(REMOVAL_STEP, limit)
        .done();
    {
        query changed(db, "SELECT changes()");
        *out_more = changed.row() && changed.integer(0) == REMOVAL_STEP;
    }
    return work.commit();
}
