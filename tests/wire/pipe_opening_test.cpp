// The agent's exchanges over a pipe in memory, without a whole agent and without sockets.

#include "fakes/test_host.h"
#include "protocol/authentication.h"
#include "protocol/configure.h"
#include "settings/registry_file.h"
#include "settings/settings.h"
#include "state/variables.h"
#include "wire/memory_pipe.h"
#include "wire/scripted_server.h"

#include <gtest/gtest.h>

namespace {

struct piped : testing::Test {
    test_host host;
    scripted_server server;
    memory_pipe pipe;
    agent_config config = {};
    char name[2] = "a", domain[2] = "b";

    piped() {
        registry_host = &registry_file_ops;
        var_set_file("/vars/variables");
        config.name = name;
        config.domain = domain;
        configure_reset();
    }

    ~piped() override {
        var_reset();
        registry_file_reset();
    }

    // Behind a success the stream is the enciphered one.
    std::string authenticate(io **stream) {
        *stream = pipe.agent;
        return noted_failure(client_authenticate(stream, &config));
    }
};

} // namespace

TEST_F(piped, agent_and_server_agree_on_a_hallmark) {
    served_pipe served(server, pipe);
    io *stream;
    EXPECT_EQ(authenticate(&stream), "(none)");
    stream->close(stream);
    served.finish();
    EXPECT_TRUE(server.connections[0].authenticated);
    EXPECT_EQ(server.accounts["b/a"].hallmark, var_get("hallmark")->value);
    EXPECT_EQ(server.accounts["b/a"].master_key, var_get("hostkey")->value);
    EXPECT_EQ(server.violations, std::vector<std::string>());
}

TEST_F(piped, agent_learns_of_a_wrong_proof) {
    server.wrong_response = true;
    served_pipe served(server, pipe);
    io *stream;
    EXPECT_EQ(authenticate(&stream), "Server failed authentication!");
    stream->close(stream);
}

TEST_F(piped, agent_learns_of_a_close_in_the_place_of_a_message) {
    server.bends.push_back({.at = server_step::NONCE, .kind = bend_kind::CLOSE_BEFORE});
    served_pipe served(server, pipe);
    io *stream;
    EXPECT_EQ(authenticate(&stream), "Peer closed connection unexpectedly");
    stream->close(stream);
    served.finish();
    EXPECT_EQ(server.connections[0].ending, "closed by the server");
}

TEST_F(piped, server_sees_an_agent_with_another_key) {
    server.accounts["b/a"] = {.master_key = "17", .key_proven = true, .hallmark = std::string(32, '1')};
    EXPECT_SUCCESS(var_set(var_make("hostkey", "17")));
    EXPECT_SUCCESS(var_set(var_make("hallmark", std::string(32, '2').c_str())));
    served_pipe served(server, pipe);
    io *stream;
    EXPECT_NE(authenticate(&stream).find("probably hallmark is out of sync"), std::string::npos);
    stream->close(stream);
    served.finish();
    EXPECT_FALSE(server.connections[0].authenticated);
}
