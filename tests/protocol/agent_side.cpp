#include "protocol/agent_side.h"

#include "platform/text.h"
#include "protocol/authentication.h"
#include "protocol/checkin.h"
#include "protocol/configure.h"
#include "settings/registry_file.h"
#include "state/variables.h"

static constexpr const char *VARIABLES = "/var/agent/variables";

agent_side::agent_side() : owner(heap_new<agent_config>()), config(owner.get()) {
    registry_host = &registry_file_ops;
    registry_file_reset();
    host.write_file(VARIABLES, "");
    var_reset();
    var_set_file(VARIABLES);
    configure_reset();
    checkin_reset();
    config->name = text_copy("node");
    config->domain = text_copy("domain");
    config->server_port = DEFAULT_SERVER_PORT;
    config->checkin_freq = 60;
    set_servers("server");
}

agent_side::~agent_side() {
    owner.reset();
    var_reset();
    registry_file_reset();
    EXPECT_EQ(sockets.open_connections(), 0);
    EXPECT_EQ(host.blocks, 0);
}

void agent_side::set_variable(const char *key, const std::string &value) {
    EXPECT_SUCCESS(var_set(var_make(key, value.c_str())));
}

std::string agent_side::variable(const char *key) const {
    const struct variable *found = var_get(key);
    return found != nullptr ? found->value : "(none)";
}

void agent_side::set_servers(const char *list) {
    free_server_list(config->servers);
    config->servers = parse_server_list(list);
    config->server_count = 0;
    while (config->servers[config->server_count].name != nullptr)
        config->server_count++;
}

served_agent::served_agent() {
    sockets.on_connect = [this](scripted_connection &connection) {
        servers.push_back(std::make_unique<server_side>(connection));
        add_opening(&last(), &secrets, &opening);
        if (behind_opening) behind_opening(last());
    };
}

// What is scripted behind the opening has to be reached.
served_agent::~served_agent() {
    for (const auto &server : servers)
        EXPECT_TRUE(!server->opened || server->steps.empty())
            << server->steps.size() << " steps were not reached";
}

void served_agent::have_met() {
    secrets.hostkey = "8";
    secrets.hallmark = md5_hex("8" + decimal_of(opening.nonce));
    set_variable("hostkey", secrets.hostkey);
    set_variable("hallmark", secrets.hallmark);
}
