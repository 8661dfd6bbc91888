// The orders of actions in the store, from the administrator's word to the agent's end of them.
#include "server/sqlite_store.h"

#include "platform/errors.h"

namespace {

using durability = transaction::durability;

// Agents start all of a reply at once, one behind the other.
constexpr int64_t ORDERS_AT_ONCE = 32;

struct agent_name {
    int64_t id = 0;
    std::string label;
};

std::vector<action_order> read_orders(query &row) {
    std::vector<action_order> orders;
    while (row.row())
        orders.push_back({.id = row.integer(0), .name = row.text(1)});
    return orders;
}

// The agents that are called so, with and without their domain.
std::vector<agent_name> find_agents(database &db, const std::string &name) {
    std::vector<agent_name> found;
    query row(db, "SELECT id, name || '@' || domain FROM agents WHERE name = ?1 OR name || '@' || domain = ?1"
                  " ORDER BY domain");
    row.with(name);
    while (row.row())
        found.push_back({.id = row.integer(0), .label = row.text(1)});
    return found;
}

bool is_offered(database &db, int64_t agent_id, const std::string &action) {
    query row(db, "SELECT 1 FROM devices JOIN groups ON groups.id = devices.group_id"
                  " WHERE devices.agent_id = ? AND groups.key = 'action' AND groups.parent_id IS NULL"
                  " AND devices.key = ?");
    return row.with(agent_id, action).row();
}

bool is_waiting(database &db, int64_t agent_id, const std::string &action) {
    query row(db, "SELECT 1 FROM actions WHERE agent_id = ? AND sent_at IS NULL AND name = ?");
    return row.with(agent_id, action).row();
}

} // namespace

const char *sqlite_store::order_action(const std::string &agent, const std::string &action, int64_t now,
                                       std::string *out_label) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::durable);
    std::vector<agent_name> agents = find_agents(db, agent);
    if (db.failed()) return db.take_failure();
    if (agents.empty()) return format_error("no agent \"%s\"", agent.c_str());
    if (agents.size() > 1)
        return format_error("\"%s\" may be %s or %s", agent.c_str(), agents[0].label.c_str(),
                            agents[1].label.c_str());
    *out_label = agents[0].label;
    if (!is_offered(db, agents[0].id, action))
        return format_error("%s offers no action \"%s\"", out_label->c_str(), action.c_str());
    if (is_waiting(db, agents[0].id, action))
        return format_error("%s is ordered to start %s already", out_label->c_str(), action.c_str());
    query(db, "INSERT INTO actions (agent_id, name, ordered_at) VALUES (?, ?, ?)")
        .with(agents[0].id, action, now)
        .done();
    return work.commit();
}

const char *sqlite_store::take_orders(int64_t agent_id, int64_t now, std::vector<action_order> *out) {
    std::lock_guard lock(mutex);
    {
        query row(db,
                  "SELECT id, name FROM actions WHERE agent_id = ? AND sent_at IS NULL ORDER BY id LIMIT ?");
        *out = read_orders(row.with(agent_id, ORDERS_AT_ONCE));
    }
    if (out->empty()) return db.take_failure();
    transaction work(db, durability::durable);
    for (const action_order &order : *out)
        query(db, "UPDATE actions SET sent_at = ? WHERE id = ?").with(now, order.id).done();
    return work.commit();
}

const char *sqlite_store::note_orders_taken(const std::vector<action_order> &orders, int64_t now) {
    std::lock_guard lock(mutex);
    transaction work(db, durability::relaxed);
    for (const action_order &order : orders)
        query(db, "UPDATE actions SET taken_at = ? WHERE id = ?").with(now, order.id).done();
    return work.commit();
}

const char *sqlite_store::note_orders_pruned(int64_t agent_id, int64_t now, std::vector<action_order> *out) {
    std::lock_guard lock(mutex);
    {
        query row(db, "SELECT id, name FROM actions WHERE agent_id = ? AND taken_at IS NOT NULL"
                      " AND pruned_at IS NULL ORDER BY id");
        *out = read_orders(row.with(agent_id));
    }
    if (out->empty()) return db.take_failure();
    transaction work(db, durability::relaxed);
    for (const action_order &order : *out)
        query(db, "UPDATE actions SET pruned_at = ? WHERE id = ?").with(now, order.id).done();
    return work.commit();
}
