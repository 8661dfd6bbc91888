// What the server keeps about agents, as the exchanges ask for it.
//
// Every operation returns absent or a failure text, and either happens as a whole or not at all. What an
// agent relies on, its keys and the results that it is told to forget, has reached the disk when the
// operation returns.
#pragma once

#include "server/check_plan.h"
#include "server/records.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One agent, known by its name and domain. `id` 0 stands for one that the store does not know.
struct agent_row {
    int64_t id = 0;
    std::string name, domain;
    std::string host_id;      // what the server calls it
    std::string master_key;   // proven by the agent, "" for none
    std::string hallmark;     // proven by the agent, "" for none
    std::string proposed_key; // made with the agent, but not proven yet
    bool prefer_proposed = false;
    bool may_rekey = false;       // once, by the administrator's word
    int64_t scanned_at = 0;       // 0 for never
    int64_t scan_asked_at = 0;    // 0 for not since the agent's start
    std::optional<int32_t> build; // as it has told it last
    std::string configured_by;    // fingerprint of the policy whose checks the agent surely has
};

// Results as they arrive in one checkin.
struct delivery {
    int64_t agent_id = 0;
    int32_t skew = 0; // the agent's clock minus the server's
    int64_t received_at = 0;
    std::vector<check_result> results;
};

// A result that was not there before.
struct stored_result {
    size_t index = 0; // in the delivery
    std::string unit;
};

struct stored_delivery {
    int64_t number = 0;
    std::vector<stored_result> fresh;
};

// An action that an administrator has ordered of an agent.
struct action_order {
    int64_t id = 0;
    std::string name;
};

struct agent_store {
    virtual ~agent_store() = default;

    // Opening. find_agent leaves id 0 where the name is unknown.
    [[nodiscard]] virtual const char *find_agent(const std::string &name, const std::string &domain,
                                                 agent_row *out) = 0;
    [[nodiscard]] virtual const char *count_agents(int64_t *out) = 0;
    // Keeps a key that is being made, beside a proven one. A new agent gets its id here.
    [[nodiscard]] virtual const char *propose_key(agent_row *agent, const std::string &key, int64_t now) = 0;
    // The agent has proven that it knows both.
    [[nodiscard]] virtual const char *prove_agent(const agent_row &agent, const std::string &key,
                                                  const std::string &hallmark, int64_t now) = 0;
    // The agent has not proven anything: the hallmark goes, and of two keys the other one's turn comes.
    [[nodiscard]] virtual const char *disprove_agent(const agent_row &agent) = 0;

    // Configuration.
    [[nodiscard]] virtual const char *save_host(int64_t agent_id, const build_numbers &build,
                                                const std::vector<host_line> &lines,
                                                const std::string &address, int64_t now) = 0;
    [[nodiscard]] virtual const char *save_offer(int64_t agent_id, const std::vector<device_group> &tree,
                                                 const std::vector<check_description> &descriptions,
                                                 int64_t now) = 0;
    [[nodiscard]] virtual const char *load_offer(int64_t agent_id, std::vector<offered_device> *out) = 0;
    // Replaces what is configured. Until set_configured the agent may or may not have it.
    [[nodiscard]] virtual const char *save_checks(int64_t agent_id,
                                                  const std::vector<planned_check> &checks) = 0;
    [[nodiscard]] virtual const char *set_configured(int64_t agent_id, const std::string &fingerprint) = 0;
    [[nodiscard]] virtual const char *note_scan_asked(int64_t agent_id, int64_t now) = 0;

    // Results. Those that repeat an unsettled delivery are stored once: see repeats.h.
    [[nodiscard]] virtual const char *save_delivery(const delivery &delivery, stored_delivery *out) = 0;
    // The agent has got the acknowledgement of this delivery.
    [[nodiscard]] virtual const char *settle_delivery(int64_t agent_id, int64_t number) = 0;
    // The agent has started afresh: nothing of what it held before can come again.
    [[nodiscard]] virtual const char *settle_agent(int64_t agent_id) = 0;

    // Actions. An order is handed out once: what becomes of it on the way, it does not come again, since
    // nobody wants a program started twice.
    [[nodiscard]] virtual const char *take_orders(int64_t agent_id, int64_t now,
                                                  std::vector<action_order> *out) = 0;
    // The agent has read these orders.
    [[nodiscard]] virtual const char *note_orders_taken(const std::vector<action_order> &orders,
                                                        int64_t now) = 0;
    // The agent has read an acknowledgement, with which it prunes the actions that it had taken before.
    [[nodiscard]] virtual const char *note_orders_pruned(int64_t agent_id, int64_t now,
                                                         std::vector<action_order> *out) = 0;

    [[nodiscard]] virtual const char *save_downtime(int64_t agent_id, int32_t minutes, int64_t now) = 0;
};
