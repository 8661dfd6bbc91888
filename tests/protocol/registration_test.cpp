#include "protocol/registration.h"

#include "devtree/live_trees.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "protocol/agent_side.h"
#include "protocol/authentication.h"
#include "protocol/server_tree.h"
#include "protocol/time_sync.h"

class registration : public served_agent {
protected:
    registration() {
        behind_opening = [this](server_side &server) {
            server.then([this, &server] {
                requests.push_back(server.take().words());
                server.send(configure_reply);
            });
            server.then([this, &server] {
                requests.push_back(server.take().words());
                if (time_reply.empty()) return server.close();
                server.send(time_reply);
            });
        };
    }
    ~registration() override {
        free_devtree(active_tree);
        active_tree = nullptr;
    }

    std::string reg() { return noted_failure(register_with_server(config)); }

    std::string configure_reply = wire_record("69", wire_text("agent") + wire_integer(60) + wire_list("") +
                                                        wire_list(wire_group("g", "")));
    std::string time_reply = wire_record("78", wire_integer(1'000'000'000) + wire_integer(0));
    std::vector<std::string> requests;
};

TEST_F(registration, authenticates_configures_without_a_scan_and_asks_the_time) {
    EXPECT_EQ(reg(), "(none)");
    EXPECT_EQ(requests, (std::vector<std::string>{"68{34 3 8 5153 0 {} {} {}}", "77{1000000000 0}"}));
    EXPECT_STREQ(active_tree->id, "g");
    EXPECT_EQ(sockets.last().closes, 1);
}

TEST_F(registration, tells_what_it_does) {
    EXPECT_EQ(reg(), "(none)");
    for (const char *text : {"Talking to server: server:3241", "Will authenticate",
                             "Will register with server", "Authentication and registration ok"})
        EXPECT_TRUE(host.logged(LOG_DETAIL, text)) << text;
    EXPECT_EQ(host.count_logged("time synchronization"), 0);
}

TEST_F(registration, tells_it_in_order) {
    text_replace(&config->name, nullptr);
    EXPECT_EQ(reg(), "(none)");
    const std::vector<std::string> lines = {
        "Talking to server: server:3241",
        "Using local ip address: 10.0.2.4",
        "Will authenticate",
        "hostkey: 1", // the store tells what it writes
        "hallmark: 32",
        "hostkey: 1",
        "Will register with server",
        "Registering buildno 5153",
        "host_id: 5",
        "hallmark: 32",
        "hostkey: 1",
        "Server sent no LogCheck group",
        "Instructed by server to perform 0 checks",
        "Authentication and registration ok",
        "Time offset is 0",
    };
    EXPECT_EQ(host.told(), lines);
}

TEST_F(registration, succeeds_without_the_time) {
    time_reply.clear();
    EXPECT_EQ(reg(), "(none)");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Server does not support time synchronization"));
    EXPECT_EQ(sockets.last().closes, 1);
    EXPECT_EQ(time_offset, 0);
}

TEST_F(registration, keeps_a_name_that_is_set) {
    EXPECT_EQ(reg(), "(none)");
    EXPECT_STREQ(config->name, "node");
    EXPECT_EQ(host.count_logged("local ip address"), 0);
}

TEST_F(registration, takes_the_local_address_for_a_missing_name) {
    text_replace(&config->name, nullptr);
    EXPECT_EQ(reg(), "(none)");
    EXPECT_STREQ(config->name, "10.0.2.4");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Using local ip address: 10.0.2.4"));
    EXPECT_EQ(opening.wants, "60{514 A1{\"10.0.2.4\" \"domain\" \"\" false false false}}");
    sockets.local_address = 0xFFFFFFFF;
    EXPECT_EQ(reg(), "(none)");
    EXPECT_STREQ(config->name, "10.0.2.4");
}

TEST_F(registration, prints_each_byte_of_the_address_unsigned) {
    text_replace(&config->name, nullptr);
    sockets.local_address = 0xFEFFC8C0;
    EXPECT_EQ(reg(), "(none)");
    EXPECT_STREQ(config->name, "192.200.255.254");
}

TEST_F(registration, goes_on_with_an_empty_name_where_there_is_no_address) {
    text_replace(&config->name, nullptr);
    sockets.has_local_address = false;
    EXPECT_EQ(reg(), "(none)");
    EXPECT_STREQ(config->name, "");
    EXPECT_TRUE(host.logged(LOG_ERROR, "Could not determine local ip address"));
    EXPECT_EQ(reg(), "(none)");
    EXPECT_EQ(host.count_logged("Could not determine"), 1);
}

TEST_F(registration, keeps_the_name_though_it_fails_later) {
    text_replace(&config->name, nullptr);
    opening.closes_at = "offers";
    EXPECT_EQ(reg(), "Peer closed connection unexpectedly");
    EXPECT_STREQ(config->name, "10.0.2.4");
}

TEST_F(registration, closes_the_stream_when_the_opening_fails) {
    opening.closes_at = "offers";
    EXPECT_EQ(reg(), "Peer closed connection unexpectedly");
    EXPECT_EQ(sockets.last().closes, 1);
    EXPECT_EQ(host.count_logged("Will register with server"), 0);
}

TEST_F(registration, closes_the_stream_when_the_configuration_fails) {
    configure_reply = wire_record("63", wire_text("no licence"));
    behind_opening = [this](server_side &server) {
        server.then([this, &server] {
            server.take();
            server.send(configure_reply);
        });
    };
    EXPECT_EQ(reg(), "no licence");
    EXPECT_EQ(sockets.last().closes, 1);
    EXPECT_EQ(host.count_logged("Authentication and registration ok"), 0);
}

TEST_F(registration, ends_where_there_is_no_server) {
    set_servers("nowhere:99");
    EXPECT_EQ(reg(), "Error resolving \"nowhere\": Host not found");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Talking to server: nowhere:99"));
    set_servers("");
    EXPECT_EQ(reg(), "Error resolving \"\": Host not found");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Talking to server: (null):3241"));
    set_servers("server");
    sockets.refuse = true;
    EXPECT_EQ(reg(), "Error connecting: system error 111 (111)");
}

TEST_F(registration, goes_to_the_next_server_behind_a_failure) {
    set_servers("nowhere,server");
    EXPECT_EQ(reg(), "Error resolving \"nowhere\": Host not found");
    EXPECT_EQ(server_index, 1);
    EXPECT_EQ(server_changed, 1U);
    server_changed = 0;
    EXPECT_EQ(reg(), "(none)");
    EXPECT_EQ(server_index, 1);
    EXPECT_EQ(server_changed, 0U);
}

TEST_F(registration, stays_with_a_single_server) {
    set_servers("nowhere");
    EXPECT_EQ(reg(), "Error resolving \"nowhere\": Host not found");
    EXPECT_EQ(server_index, 0);
    EXPECT_EQ(server_changed, 0U);
}

TEST_F(registration, of_server_register_alone_stays_with_the_server) {
    set_servers("nowhere,server");
    EXPECT_FAILURE(server_register(config), "Error resolving \"nowhere\": Host not found");
    EXPECT_EQ(server_index, 0);
    EXPECT_EQ(server_changed, 0U);
}
