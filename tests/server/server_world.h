// A whole server in memory: a store that is forgotten, a clock that stands, a policy of the test, notes of
// all that happens, and agents whose connections run in threads of their own.
#pragma once

#include "server/byte_pipe.h"
#include "server/scripted_agent.h"
#include "server/session.h"
#include "server/sqlite_store.h"

#include <gtest/gtest.h>
#include <memory>
#include <thread>

// What was told to the observer, a line each.
struct noting_observer : server_observer {
    mutable std::mutex mutex;
    std::vector<std::string> notes;
    std::vector<check_result> fresh; // results, as they were stored

    void registered(const agent_row &agent, const build_numbers &build, const std::string &address,
                    bool new_key) override;
    void offered(const agent_row &agent, size_t groups, size_t devices) override;
    void configured(const agent_row &agent, size_t checks) override;
    void delivered(const agent_row &agent, const delivery &delivery, const stored_delivery &stored) override;
    void action(const agent_row &agent, const std::string &name, action_step step) override;
    void downtime(const agent_row &agent, int32_t minutes, int64_t until) override;
    void upgraded(const agent_row &agent, int32_t build) override;
    void refused(const std::string &agent, const std::string &address, const std::string &reason) override;
    void failed(const std::string &agent, const std::string &address, const std::string &failure) override;

    void note(const std::string &text);
    bool noted(const std::string &part) const;
};

// One connection, with the session at its other end.
class test_connection {
public:
    test_connection(const server_ports &ports, const std::string &name, agent_secrets *secrets,
                    std::function<bool(int64_t)> admit = {});
    ~test_connection() { close(); }

    scripted_agent *operator->() { return &agent; }
    // The agent closes, and the session comes to its end.
    void close(peer_end how = peer_end::in_order);

    std::vector<session_stage> stages; // that the session has entered

private:
    memory_connection wires;
    session_link link;
    scripted_agent agent;
    std::thread session;
};

class server_world : public testing::Test {
protected:
    server_world();

    std::unique_ptr<test_connection> connect(const std::string &name = "web1");
    // Connects and opens.
    std::unique_ptr<test_connection> open(const std::string &name = "web1");
    // A whole registration, and a checkin with a scan of this tree.
    void register_agent(const std::string &tree = "");
    // A checkin of its own connection; what the agent does not read is lost to it.
    wire_value deliver(const std::vector<sent_result> &results);
    void deliver_and_lose_reply(const std::vector<sent_result> &results);
    // Rows of the store, columns joined by "|".
    std::vector<std::string> rows(const char *sql);
    void set_policy(const std::string &text);

    // Removed when all else is gone.
    struct removed_files {
        std::vector<std::string> paths;
        ~removed_files();
    } leftovers;
    std::string store_path;
    static inline int64_t now; // by the server's clock
    int64_t agent_ahead = 0;   // of the server's clock
    sqlite_store store;
    policy rules;
    noting_observer observer;
    memory_pool memory{256U << 20};
    server_ports ports;
    agent_secrets secrets; // of "web1", and of whoever a test wants to have them
};
