// What happens in the server, told to whoever shows it. Every call may come from any connection's thread.
#pragma once

#include "server/agent_store.h"
#include "server/records.h"

#include <string>

// Sent in an answer, read by the agent, and gone from it, since it has been started.
enum class action_step { sent, taken, pruned };

struct server_observer {
    virtual ~server_observer() = default;

    // An agent has started and got its configuration. `new_key` when keys were made in this connection.
    virtual void registered(const agent_row &agent, const build_numbers &build, const std::string &address,
                            bool new_key) = 0;
    virtual void offered(const agent_row &agent, size_t groups, size_t devices) = 0;
    virtual void configured(const agent_row &agent, size_t checks) = 0;
    // Results that were not there before.
    virtual void delivered(const agent_row &agent, const delivery &delivery,
                           const stored_delivery &stored) = 0;
    // How far the order of an action has come.
    virtual void action(const agent_row &agent, const std::string &name, action_step step) = 0;
    virtual void downtime(const agent_row &agent, int32_t minutes, int64_t until) = 0;
    // The agent has fetched the whole upgrade.
    virtual void upgraded(const agent_row &agent, int32_t build) = 0;
    // Someone was sent away with these words. `agent` is its name as it gave it, or empty.
    virtual void refused(const std::string &agent, const std::string &address, const std::string &reason) = 0;
    // A connection or an operation of the store has failed.
    virtual void failed(const std::string &agent, const std::string &address, const std::string &failure) = 0;
};
