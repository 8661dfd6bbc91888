// The agent's side of a test: its settings, its variables in a file in memory, and the network.
#pragma once

#include "fakes/test_host.h"
#include "protocol/scripted_sockets.h"
#include "protocol/server_side.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

class agent_side : public testing::Test {
protected:
    agent_side();
    ~agent_side() override;

    void set_variable(const char *key, const std::string &value);
    std::string variable(const char *key) const; // "(none)" without one
    // What a restart would find.
    std::string stored_variables() const { return host.read_file("/var/agent/variables"); }
    void set_servers(const char *list);

    test_host host;
    scripted_sockets sockets;
    config_guard owner;
    agent_config *config;
};

// With a server that knows the agent, or comes to know it. Each connection has a script of its own.
class served_agent : public agent_side {
protected:
    served_agent();
    ~served_agent() override;

    // Adds steps behind the opening of each connection from now on.
    std::function<void(server_side &)> behind_opening;
    // Both sides know these from an earlier meeting.
    void have_met();

    server_secrets secrets;
    server_opening opening;
    std::vector<std::unique_ptr<server_side>> servers; // one for each connection
    server_side &last() { return *servers.back(); }
};
