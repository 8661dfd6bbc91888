#include "fakes/hex.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "protocol/agent_side.h"
#include "protocol/authentication.h"
#include "protocol/hallmark.h"
#include "state/variables.h"

class opening_exchange : public served_agent {
protected:
    // Connects and authenticates once. What is connected is closed.
    std::string open() {
        servers.clear();
        io *stream = nullptr;
        std::string failure = noted_failure(setup_connection(config, &stream, nullptr, nullptr));
        EXPECT_EQ(stream != nullptr, failure == "(none)");
        EXPECT_TRUE(stream == nullptr || last().opened);
        if (stream != nullptr) stream->close(stream);
        EXPECT_EQ(sockets.open_connections(), 0);
        return failure;
    }
    std::string open_with(const std::string &message, const std::string &bytes) {
        opening.instead = {{message, bytes}};
        return open();
    }
    std::string open_ended_at(const std::string &message) {
        opening.closes_at = message;
        return open();
    }
};

using client_wants_exchange = opening_exchange;
using server_offers_exchange = opening_exchange;
using connection_setup = opening_exchange;
using state_of_secrets = opening_exchange;

static constexpr const char *CLOSED_BY_PEER = "Peer closed connection unexpectedly";

// What the agent says first.

TEST_F(client_wants_exchange, tells_name_domain_and_id) {
    config->host_id = text_copy("agent 7");
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(opening.wants, "60{514 A1{\"node\" \"domain\" \"agent 7\" false false false}}");
}

TEST_F(client_wants_exchange, tells_an_absent_id_and_name_as_empty) {
    text_replace(&config->name, nullptr);
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(opening.wants, "60{514 A1{\"\" \"domain\" \"\" false false false}}");
}

TEST_F(client_wants_exchange, tells_both_secrets) {
    have_met();
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(opening.wants, "60{514 A1{\"node\" \"domain\" \"\" true true false}}");
}

TEST_F(client_wants_exchange, tells_a_master_key_alone) {
    have_met();
    secrets.hallmark.clear();
    var_delete("hallmark");
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(opening.wants, "60{514 A1{\"node\" \"domain\" \"\" true false false}}");
}

TEST_F(client_wants_exchange, counts_a_hallmark_without_a_master_key_for_nothing) {
    set_variable("hallmark", "00112233445566778899aabbccddeeff");
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(opening.wants, "60{514 A1{\"node\" \"domain\" \"\" false false false}}");
}

TEST_F(client_wants_exchange, refuses_a_name_or_domain_that_is_too_long) {
    text_replace(&config->domain, text_copy(std::string(1025, 'd').c_str()));
    EXPECT_EQ(open(), "client_private_key.domain: data out of range in write_string");
    text_replace(&config->name, text_copy(std::string(257, 'n').c_str()));
    EXPECT_EQ(open(), "client_private_key.name: data out of range in write_string");
}

TEST_F(client_wants_exchange, does_not_take_memory_that_is_out_for_missing_secrets) {
    for (uint32_t allocation = 1; allocation < 40; allocation++) {
        have_met();
        opening.wants.clear();
        host.fail_allocation = allocation;
        open();
        host.fail_allocation = 0;
        EXPECT_TRUE(opening.wants.empty() || opening.wants.ends_with("true true false}}")) << opening.wants;
    }
}

// What the server offers.

TEST_F(server_offers_exchange, may_reject_the_agent) {
    EXPECT_EQ(open_with("offers", wire_record("63", wire_text("not in this domain"))), "Server rejected us");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Server said: \"not in this domain\""));
}

TEST_F(server_offers_exchange, may_reject_the_agent_in_1024_characters) {
    EXPECT_EQ(open_with("offers", wire_record("63", wire_text(std::string(1025, 'x')))),
              "negotiate_nack.reason: data out of range in read_string");
}

TEST_F(server_offers_exchange, is_no_other_message) {
    EXPECT_EQ(open_with("offers", wire_record("62", "")), "Server returned bad reply to client_wants: 19");
    EXPECT_EQ(open_with("offers", WIRE_END), "Server returned bad reply to client_wants: 0");
}

TEST_F(server_offers_exchange, has_an_indefinite_length) {
    EXPECT_EQ(open_with("offers", wire_value("61", wire_integer(514))),
              "Definite length read in read_server_offers_incomplete");
}

TEST_F(server_offers_exchange, holds_a_private_key) {
    const char *text =
        "Tarnix Server does not support private key authentication.  Upgrade  the Tarnix Server.";
    EXPECT_EQ(open_with("offers", wire_record("61", wire_integer(514))), text);
    EXPECT_EQ(open_with("offers", wire_record("61", wire_integer(514) + wire_record("A0", ""))), text);
}

TEST_F(server_offers_exchange, may_hold_more) {
    std::string keys = wire_record("A1", wire_bool(false) + wire_bool(false) + wire_text("new"));
    EXPECT_EQ(open_with("offers", wire_record("61", wire_integer(514) + keys + wire_list(wire_null()))),
              "(none)");
}

TEST_F(server_offers_exchange, ends_with_its_record) {
    std::string keys = wire_record("A1", wire_bool(false) + wire_bool(false));
    EXPECT_EQ(open_with("offers", wire_open("61", wire_integer(514) + keys) + bytes("00 01")),
              "List not terminated correctly in skip_to_eol");
}

TEST_F(server_offers_exchange, wants_the_same_major_alone) {
    for (int64_t version : {0x0200, 0x0201, 0x0202, 0x0203, 0x02FF}) {
        opening.version = version;
        EXPECT_EQ(open(), "(none)") << version;
        EXPECT_EQ(server_protocol_version, version);
    }
}

TEST_F(server_offers_exchange, refuses_another_major) {
    EXPECT_EQ(open(), "(none)");
    for (int64_t version : {0x0302, 0x0102, 0x01FF, 0x0300, 0, 65535}) {
        opening.version = version;
        EXPECT_EQ(open(),
                  "Tarnix Server does not support our protocol version. Upgrade the Tarnix Server, or "
                  "downgrade the Tarnix Agent.");
        EXPECT_EQ(server_protocol_version, 514);
        EXPECT_EQ(wire_words(sockets.last().sent), opening.wants); // and no negotiate_ack
    }
}

TEST_F(server_offers_exchange, names_the_field_that_is_out_of_range) {
    EXPECT_EQ(open_with("offers", wire_record("61", wire_integer(65536))),
              "server_offers.version: data out of range in read_signed_int");
    EXPECT_EQ(open_with("offers", wire_record("61", wire_integer(514) + wire_record("A1", wire_bool(true)))),
              "server_private_key.hasHallmark: Wrong tag, expected BE_BOOLEAN");
}

TEST_F(server_offers_exchange, may_never_come) {
    EXPECT_EQ(open_ended_at("offers"), CLOSED_BY_PEER);
}

// The rows of the two sides' secrets.

static constexpr const char *NO_KEY_ON_SERVER = "The Tarnix Server does not have a master key for the "
                                                "\"node\" node in the \"domain\" domain - release the key on "
                                                "the agent!";

TEST_F(state_of_secrets, refuses_a_server_that_lost_the_master_key) {
    for (int says_hallmark : {0, 1}) {
        for (bool has_hallmark : {false, true}) {
            have_met();
            if (!has_hallmark) var_delete("hallmark");
            opening.says_master_key = 0;
            opening.says_hallmark = says_hallmark;
            EXPECT_EQ(open(), NO_KEY_ON_SERVER);
            EXPECT_EQ(wire_words(sockets.last().sent), opening.wants);
            EXPECT_EQ(variable("hostkey"), "8");
        }
    }
}

TEST_F(state_of_secrets, names_an_absent_node_null) {
    have_met();
    text_replace(&config->name, nullptr);
    opening.says_master_key = 0;
    EXPECT_TRUE(open().starts_with("The Tarnix Server does not have a master key for the \"(null)\" node"));
}

TEST_F(state_of_secrets, makes_both_at_the_first_meeting) {
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(variable("hostkey"), secrets.hostkey);
    EXPECT_EQ(variable("hallmark"), secrets.hallmark);
    EXPECT_EQ(variable("hallmark"), md5_hex(secrets.hostkey + decimal_of(opening.nonce)));
}

TEST_F(state_of_secrets, makes_both_though_an_orphan_hallmark_is_there) {
    set_variable("hallmark", "00112233445566778899aabbccddeeff");
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(variable("hallmark"), secrets.hallmark);
}

TEST_F(state_of_secrets, makes_a_new_hallmark_from_the_master_key) {
    for (bool has_hallmark : {false, true}) {
        have_met();
        if (!has_hallmark) var_delete("hallmark");
        opening.says_hallmark = 0;
        opening.nonce = has_hallmark ? "another nonce" : "one more nonce";
        EXPECT_EQ(open(), "(none)");
        EXPECT_EQ(variable("hostkey"), "8");
        EXPECT_EQ(variable("hallmark"), md5_hex("8" + decimal_of(opening.nonce)));
    }
}

TEST_F(state_of_secrets, has_no_way_without_the_master_key_that_the_server_has) {
    secrets.hostkey = "8";
    EXPECT_EQ(open(), "No master key while doing hallmark negotiation!");
    set_variable("hallmark", "00112233445566778899aabbccddeeff");
    EXPECT_EQ(open(), "No master key while doing hallmark negotiation!");
}

TEST_F(state_of_secrets, goes_straight_to_the_cipher_with_a_hallmark) {
    have_met();
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(last().turns.size(), 6U); // wants, offers, ack, challenge, both proofs, response
}

TEST_F(state_of_secrets, goes_straight_to_the_cipher_even_without_a_master_key) {
    for (int says_master_key : {0, 1}) {
        have_met();
        var_delete("hostkey");
        opening.says_master_key = says_master_key;
        EXPECT_EQ(open(), "(none)");
    }
}

TEST_F(state_of_secrets, has_no_way_without_the_hallmark_that_the_server_has) {
    have_met();
    var_delete("hallmark");
    EXPECT_EQ(open(), "Error retrieving hallmark in mutual authentication phase");
    var_delete("hostkey");
    for (int says_master_key : {0, 1}) {
        opening.says_master_key = says_master_key;
        EXPECT_EQ(open(), "Error retrieving hallmark in mutual authentication phase");
    }
}

// Connecting.

TEST_F(connection_setup, takes_the_port_of_the_entry_or_the_common_one) {
    set_servers("server,server:99");
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(sockets.last().port, 3241);
    server_index = 1;
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(sockets.last().port, 99);
}

TEST_F(connection_setup, connects_to_the_address_of_the_name) {
    sockets.hosts["other"] = 0x0A0B0C0D;
    set_servers("server,other");
    server_index = 1;
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(sockets.last().address, 0x0A0B0C0DU);
}

TEST_F(connection_setup, ends_at_a_name_that_is_unknown) {
    set_servers("nowhere");
    io *stream = nullptr;
    EXPECT_FAILURE(setup_connection(config, &stream, nullptr, nullptr),
                   "Error resolving \"nowhere\": Host not found");
    EXPECT_EQ(stream, nullptr);
    EXPECT_TRUE(sockets.connections.empty());
}

TEST_F(connection_setup, ends_at_an_empty_list_of_servers) {
    set_servers("");
    io *stream = nullptr;
    EXPECT_FAILURE(setup_connection(config, &stream, nullptr, nullptr),
                   "Error resolving \"\": Host not found");
}

TEST_F(connection_setup, ends_at_a_connection_that_is_refused) {
    sockets.refuse = true;
    io *stream = nullptr;
    EXPECT_FAILURE(setup_connection(config, &stream, nullptr, nullptr),
                   "Error connecting: system error 111 (111)");
}

TEST_F(connection_setup, tells_when_it_began_and_when_it_was_connected) {
    auto answer = sockets.on_connect;
    sockets.on_connect = [&](scripted_connection &connection) {
        host.now += 3;
        answer(connection);
        connection.starved = [&, step = connection.starved] { // the opening takes its time too
            host.now += 5;
            step();
        };
    };
    int64_t start = 0, connected = 0;
    io *stream = nullptr;
    EXPECT_SUCCESS(setup_connection(config, &stream, &start, &connected));
    EXPECT_EQ(start, 1'000'000'000);
    EXPECT_EQ(connected, 1'000'000'003);
    stream->close(stream);
}

TEST_F(connection_setup, closes_the_stream_once_when_the_opening_fails) {
    EXPECT_EQ(open_ended_at("challenge"),
              "Protocol error (Peer closed connection unexpectedly), probably hallmark is "
              "out of sync");
    EXPECT_EQ(sockets.last().closes, 1);
}

// Failover.

TEST(advance_server, goes_round_the_list) {
    test_host host;
    authentication_reset();
    agent_config config = {};
    config.server_count = 3;
    for (int32_t expected : {1, 2, 0}) {
        server_changed = 0;
        advance_server(&config);
        EXPECT_EQ(server_index, expected);
        EXPECT_EQ(server_changed, 1U);
    }
}

TEST(advance_server, stays_with_a_single_server) {
    test_host host;
    authentication_reset();
    agent_config config = {};
    for (int32_t count : {0, 1}) {
        config.server_count = count;
        advance_server(&config);
        EXPECT_EQ(server_index, 0);
        EXPECT_EQ(server_changed, 0U);
    }
}
