// The store in an SQLite file, which docs/tnserver.md describes. Any thread may call any operation at any
// time.
#pragma once

#include "server/agent_store.h"
#include "server/database.h"

#include <mutex>

class sqlite_store : public agent_store {
public:
    // Makes the file, for its owner alone, where there is none. ":memory:" is a store that is forgotten.
    [[nodiscard]] const char *open(const std::string &path);

    const char *find_agent(const std::string &name, const std::string &domain, agent_row *out) override;
    const char *count_agents(int64_t *out) override;
    const char *propose_key(agent_row *agent, const std::string &key, int64_t now) override;
    const char *prove_agent(const agent_row &agent, const std::string &key, const std::string &hallmark,
                            int64_t now) override;
    const char *disprove_agent(const agent_row &agent) override;
    const char *save_host(int64_t agent_id, const build_numbers &build, const std::vector<host_line> &lines,
                          const std::string &address, int64_t now) override;
    const char *save_offer(int64_t agent_id, const std::vector<device_group> &tree,
                           const std::vector<check_description> &descriptions, int64_t now) override;
    const char *load_offer(int64_t agent_id, std::vector<offered_device> *out) override;
    const char *save_checks(int64_t agent_id, const std::vector<planned_check> &checks) override;
    const char *set_configured(int64_t agent_id, const std::string &fingerprint) override;
    const char *note_scan_asked(int64_t agent_id, int64_t now) override;
    const char *save_delivery(const delivery &delivery, stored_delivery *out) override;
    const char *settle_delivery(int64_t agent_id, int64_t number) override;
    const char *settle_agent(int64_t agent_id) override;
    const char *take_orders(int64_t agent_id, int64_t now, std::vector<action_order> *out) override;
    const char *note_orders_taken(const std::vector<action_order> &orders, int64_t now) override;
    const char *note_orders_pruned(int64_t agent_id, int64_t now, std::vector<action_order> *out) override;
    const char *save_downtime(int64_t agent_id, int32_t minutes, int64_t now) override;

    // Lets an agent that has lost its key make a new one, once. `*out_found` tells whether there is such an
    // agent.
    [[nodiscard]] const char *allow_rekey(const std::string &name, const std::string &domain,
                                          bool *out_found);

    // Orders an action of the agent "NAME" or "NAME@DOMAIN", which must offer it. `*out_label` is the agent's
    // name with its domain. Fails where there is no such agent, more than one, or no such action.
    [[nodiscard]] const char *order_action(const std::string &agent, const std::string &action, int64_t now,
                                           std::string *out_label);

    // Removes the oldest results received before `limit`, a bounded number of them. `*out_more` tells whether
    // more of them may be left.
    [[nodiscard]] const char *remove_results_before(int64_t limit, bool *out_more);

private:
    std::mutex mutex;
    database db;
};

// Opens the file for reading, as the summary does. Fails on a file that is not a store of this program.
[[nodiscard]] const char *open_store_for_reading(const std::string &path, database *out);
