#include "protocol/hallmark.h"

#include "fakes/hex.h"
#include "platform/agent_log.h"
#include "platform/sockets.h"
#include "protocol/agent_side.h"
#include "protocol/authentication.h"
#include "state/variables.h"

#include <cstring>
#include <set>

class hallmark_exchange : public served_agent {
protected:
    std::string open() {
        io *stream = nullptr;
        std::string failure = noted_failure(setup_connection(config, &stream, nullptr, nullptr));
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
    // As if the two had never met.
    void forget() {
        var_reset();
        host.write_file("/var/agent/variables", "");
        secrets = {};
    }
    std::string meet_with(const std::string &message, const std::string &bytes) {
        forget();
        return open_with(message, bytes);
    }
    std::string meet_up_to(const std::string &message) {
        forget();
        return open_ended_at(message);
    }
    // What the agent has sent as its public value.
    static std::string public_value(const server_side &server) { return server.turns.at(4).second; }
};

using key_exchange = hallmark_exchange;
using nonce_exchange = hallmark_exchange;
using challenge_exchange = hallmark_exchange;
using response_exchange = hallmark_exchange;

static constexpr const char *CLOSED_BY_PEER = "Peer closed connection unexpectedly";
static constexpr const char *OUT_OF_SYNC_OF_CLOSED =
    "Protocol error (Peer closed connection unexpectedly), probably hallmark is out of sync";

// The master key.

TEST_F(key_exchange, takes_twelve_messages_above_version_512) {
    EXPECT_EQ(open(), "(none)");
    // Each turn as words; the enciphered ones are judged by the server's side.
    const auto &turns = last().turns;
    ASSERT_EQ(turns.size(), 8U);
    EXPECT_EQ(wire_words(turns[0].second), "60{514 A1{\"node\" \"domain\" \"\" false false false}}");
    EXPECT_EQ(wire_words(turns[1].second), "61{514 A1{false false}}");
    EXPECT_EQ(wire_words(turns[2].second), "62{}");
    EXPECT_EQ(wire_words(turns[3].second), "64{23 5}");
    EXPECT_EQ(wire_words(turns[4].second), "65{13}"); // 5 to the power of 0x03020100, modulo 23
    EXPECT_TRUE(turns[5].second.starts_with(wire_record("65", wire_integer(8)) + wire_record("62", "")));
    EXPECT_EQ(variable("hostkey"), "6"); // 8 to the power of 0x03020100
}

TEST_F(key_exchange, has_no_acknowledgement_up_to_version_512) {
    opening.version = 512;
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(variable("hostkey"), secrets.hostkey);
}

TEST_F(key_exchange, has_an_acknowledgement_from_version_513) {
    opening.version = 513;
    EXPECT_EQ(open(), "(none)");
}

TEST_F(key_exchange, may_be_refused_with_a_reason) {
    EXPECT_EQ(meet_with("parameters", wire_record("63", wire_text("no keys today, 100%s"))),
              "no keys today, 100%s");
    EXPECT_EQ(variable("hostkey"), "(none)");
}

TEST_F(key_exchange, tells_a_reason_of_1024_characters_whole) {
    const std::string reason(1024, 'r');
    EXPECT_EQ(meet_with("parameters", wire_record("63", wire_text(reason))), reason);
    EXPECT_EQ(meet_with("parameters", wire_record("63", wire_text(reason + "r"))),
              "negotiate_nack.reason: data out of range in read_string");
}

TEST_F(key_exchange, begins_with_the_group) {
    EXPECT_EQ(meet_with("parameters", wire_record("65", wire_integer(5))),
              "Wrong tag (43) encountered, expected diffie_hellmann_parameters");
    EXPECT_EQ(meet_with("parameters", wire_record("64", wire_integer(5))),
              "diffie_hellmann_parameters.generator: Wrong tag, expected BE_INTEGER");
    EXPECT_EQ(meet_with("parameters", wire_record("63", "")),
              "negotiate_nack.reason: Wrong tag, expected BE_STRING");
    EXPECT_EQ(meet_up_to("parameters"), CLOSED_BY_PEER);
}

TEST_F(key_exchange, refuses_a_modulus_or_generator_of_zero) {
    const char *text = "Received invalid modulus/generator from server";
    EXPECT_EQ(meet_with("parameters", wire_record("64", wire_integer(0) + wire_integer(5))), text);
    EXPECT_EQ(meet_with("parameters", wire_record("64", wire_integer(23) + wire_integer(0))), text);
    EXPECT_EQ(meet_with("parameters", wire_record("64", wire_number(bytes("00 00")) + wire_integer(5))),
              text);
}

TEST_F(key_exchange, never_sends_a_trivial_value) {
    // All exponents from 0 to 43: those that lead to 1 or 22 are passed over.
    std::string bad =
        wire_words(wire_record("65", wire_integer(1))) + wire_words(wire_record("65", wire_integer(22)));
    for (uint32_t exponent = 0; exponent < 44; exponent++) {
        uint32_t next = exponent;
        host.random = [&](void *buffer, size_t count) {
            memset(buffer, 0, count);
            static_cast<unsigned char *>(buffer)[0] = static_cast<unsigned char>(next++);
            return true;
        };
        forget();
        EXPECT_EQ(open(), "(none)");
        EXPECT_EQ(bad.find(wire_words(public_value(last()))), std::string::npos) << exponent;
        EXPECT_EQ(next > exponent + 2, exponent % 11 == 0) << exponent; // the challenge takes one as well
    }
}

TEST_F(key_exchange, ends_in_a_group_without_a_sound_value) {
    opening.modulus = bytes("02");
    EXPECT_EQ(open(), "Error getting a random number for the key exchange");
    opening.modulus = bytes("17");
    opening.generator = bytes("01");
    EXPECT_EQ(open(), "Error getting a random number for the key exchange");
}

TEST_F(key_exchange, needs_random_bytes) {
    host.random = [](void *, size_t) { return false; };
    EXPECT_EQ(open(), "Error getting a random number for the key exchange");
}

TEST_F(key_exchange, does_not_sit_on_absurd_groups) {
    const char *text = "sporadic_bignum.num: Buffer given to bn_get_data is too small";
    opening.modulus = std::string(1U << 20, '\x7F');
    EXPECT_EQ(open(), text);
    opening.modulus = bytes("17");
    opening.generator = std::string(1U << 20, '\x7F');
    EXPECT_EQ(open(), text);
}

TEST_F(key_exchange, sends_public_values_of_up_to_35_limbs) {
    opening.modulus = std::string(140, '\xFF');
    EXPECT_EQ(open(), "(none)");
    opening.modulus = std::string(141, '\xFF');
    forget();
    // A value below the modulus may still be short, with a generator and an exponent that are small.
    opening.generator = bytes("7F FF FF FF");
    EXPECT_EQ(open(), "sporadic_bignum.num: Buffer given to bn_get_data is too small");
}

TEST_F(key_exchange, reads_the_value_of_the_server) {
    EXPECT_EQ(meet_with("public", wire_record("66", wire_integer(8))),
              "Wrong tag (51) encountered in read_sporadic_bignum");
    EXPECT_EQ(meet_with("public", wire_record("65", wire_text("8"))),
              "sporadic_bignum.num: Wrong tag, expected BE_INTEGER");
    EXPECT_EQ(meet_up_to("public"), CLOSED_BY_PEER);
    EXPECT_EQ(variable("hostkey"), "(none)");
}

TEST_F(key_exchange, does_not_sit_on_an_absurd_value) {
    EXPECT_EQ(meet_with("public", wire_record("65", wire_number(std::string(4096 * 4 + 1, '\x7F')))),
              "Error calculating secret key");
    EXPECT_EQ(meet_with("public", wire_record("65", wire_number(std::string(1U << 20, '\x7F')))),
              "Error calculating secret key");
}

TEST_F(key_exchange, waits_ten_minutes_for_the_value_of_the_server) {
    uint32_t timeout = 0;
    socket_set_timeout(5);
    sockets.on_connect = [&](scripted_connection &connection) {
        servers.push_back(std::make_unique<server_side>(connection));
        add_opening(&last(), &secrets, &opening);
        // The step that takes the agent's value, one behind the offers and the acknowledgement.
        connection.starved = [&, inner = connection.starved] {
            timeout = socket_timeout();
            inner();
        };
    };
    opening.closes_at = "public";
    EXPECT_EQ(open(), CLOSED_BY_PEER);
    EXPECT_EQ(timeout, 600U);
    EXPECT_EQ(socket_timeout(), SOCKET_DEFAULT_TIMEOUT);
}

TEST_F(key_exchange, wants_an_acknowledgement) {
    EXPECT_EQ(meet_with("key_ack", wire_record("65", wire_integer(5))),
              "Server returned bad reply to key: 43 (202)");
    EXPECT_EQ(meet_with("key_ack", bytes("62 00")), "Definite length read in read_negotiate_ack");
    EXPECT_EQ(meet_up_to("key_ack"), CLOSED_BY_PEER);
    EXPECT_EQ(variable("hostkey"), "(none)");
}

TEST_F(key_exchange, keeps_the_master_key_when_the_nonce_fails) {
    EXPECT_EQ(meet_up_to("nonce"), CLOSED_BY_PEER);
    EXPECT_EQ(variable("hostkey"), "6");
    EXPECT_EQ(variable("hallmark"), "(none)");
}

TEST_F(key_exchange, stores_a_new_key_with_the_next_flush) {
    meet_up_to("nonce");
    EXPECT_EQ(stored_variables(), "hostkey\t6\n");
}

TEST_F(key_exchange, does_not_mind_a_flush_that_fails) {
    host.broken["open"]["/var/agent"] = 13;
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(stored_variables(), "");
}

TEST_F(key_exchange, forgets_earlier_failures) {
    hallmark_retries = 3;
    meet_up_to("nonce");
    EXPECT_EQ(hallmark_retries, 0);
}

// The hallmark.

TEST_F(nonce_exchange, reads_a_number) {
    have_met();
    opening.says_hallmark = 0;
    EXPECT_EQ(open_with("nonce", wire_record("62", "")),
              "Wrong tag (19) encountered in read_sporadic_bignum");
    EXPECT_EQ(variable("hallmark"), md5_hex("8" + decimal_of(opening.nonce)));
}

TEST_F(nonce_exchange, stores_the_hallmark_at_once) {
    have_met();
    EXPECT_SUCCESS(var_flush(1)); // a value that changes is not written at once by itself
    std::string old = stored_variables();
    EXPECT_NE(old.find("hallmark"), std::string::npos);
    opening.says_hallmark = 0;
    opening.nonce = "fresh";
    EXPECT_EQ(open(), "(none)");
    EXPECT_NE(stored_variables(), old);
    EXPECT_NE(stored_variables().find("hallmark\t" + secrets.hallmark + "\n"), std::string::npos);
}

TEST_F(nonce_exchange, takes_a_nonce_of_zero) {
    have_met();
    opening.says_hallmark = 0;
    opening.nonce = "";
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(variable("hallmark"), md5_hex("80"));
}

TEST_F(nonce_exchange, does_not_sit_on_an_absurd_number) {
    have_met();
    opening.says_hallmark = 0;
    EXPECT_EQ(open_with("nonce", wire_record("65", wire_number(std::string(1U << 20, '\x7F')))),
              "Out of memory during hallmark negotiation");
}

// The agent's proof.

TEST_F(challenge_exchange, fails_with_a_wrong_hallmark_and_heals) {
    have_met();
    set_variable("hallmark", "00112233445566778899aabbccddeeff");
    std::string failure = open();
    EXPECT_TRUE(failure.starts_with("Protocol error (")) << failure;
    EXPECT_TRUE(failure.ends_with("), probably hallmark is out of sync")) << failure;
    EXPECT_EQ(variable("hallmark"), "(none)");
    EXPECT_EQ(hallmark_retries, 1);
    // The server sees that the agent has none, and sends a nonce.
    opening.says_hallmark = 0;
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(hallmark_retries, 0);
    EXPECT_EQ(variable("hallmark"), secrets.hallmark);
}

TEST_F(challenge_exchange, gives_the_hallmark_up_three_times_in_a_row) {
    for (int32_t failures = 1; failures <= 3; failures++) {
        have_met();
        EXPECT_EQ(open_ended_at("challenge"), OUT_OF_SYNC_OF_CLOSED);
        EXPECT_EQ(hallmark_retries, failures);
        EXPECT_EQ(variable("hallmark"), "(none)");
    }
    have_met();
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(open_ended_at("challenge"),
                  "Protocol error (Peer closed connection unexpectedly), probably agent/server key mismatch");
        EXPECT_EQ(hallmark_retries, 3);
        EXPECT_NE(variable("hallmark"), "(none)");
    }
    opening.closes_at.clear();
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(hallmark_retries, 0);
}

TEST_F(challenge_exchange, tells_what_was_wrong_with_the_challenge) {
    have_met();
    EXPECT_EQ(open_with("challenge", wire_record("67", wire_integer(1))),
              "Protocol error (Wrong tag (59) encountered in read_auth_challenge), probably hallmark is out "
              "of sync");
}

TEST_F(challenge_exchange, answers_a_number_of_any_size) {
    for (const std::string &challenge :
         {std::string(), bytes("01"), bytes("FF"), std::string(4096, '\xFF')}) {
        have_met();
        opening.challenge = challenge;
        EXPECT_EQ(open(), "(none)");
    }
}

TEST_F(challenge_exchange, does_not_sit_on_an_absurd_number) {
    have_met();
    EXPECT_EQ(open_with("challenge", wire_record("66", wire_number(std::string(1U << 20, '\x7F')))),
              "Out of memory during challenge / response");
    EXPECT_NE(variable("hallmark"), "(none)");
}

// The server's proof.

TEST_F(response_exchange, asks_with_sixteen_random_bytes) {
    have_met();
    std::vector<size_t> asked;
    host.random = [&](void *buffer, size_t count) {
        asked.push_back(count);
        memset(buffer, 7, count);
        return true;
    };
    EXPECT_EQ(open(), "(none)");
    EXPECT_EQ(asked, std::vector<size_t>{16});
}

TEST_F(response_exchange, needs_random_bytes) {
    have_met();
    host.random = [](void *, size_t) { return false; };
    EXPECT_EQ(open(), "Out of memory during challenge / response");
}

TEST_F(response_exchange, unmasks_a_server_with_another_answer) {
    have_met();
    std::string hallmark = variable("hallmark");
    EXPECT_EQ(open_with("response", wire_record("67", wire_integer(5))), "Server failed authentication!");
    EXPECT_EQ(variable("hallmark"), hallmark);
}

TEST_F(response_exchange, drops_the_hallmark_when_no_answer_comes) {
    have_met();
    EXPECT_EQ(open_ended_at("response"),
              "Server rejected challenge response (Peer closed connection unexpectedly) - "
              "will re-negotiate hallmark");
    EXPECT_EQ(variable("hallmark"), "(none)");
    EXPECT_EQ(hallmark_retries, 0);
}

TEST_F(response_exchange, drops_the_hallmark_when_the_answer_is_another_message) {
    have_met();
    EXPECT_EQ(open_with("response", wire_record("63", wire_text("no"))),
              "Server rejected challenge response (Wrong tag (27) encountered in read_auth_response) - will "
              "re-negotiate hallmark");
    EXPECT_EQ(variable("hallmark"), "(none)");
    EXPECT_EQ(variable("hostkey"), "8");
}

// Memory.

// Every allocation of a first meeting fails once: the meeting ends in a stated text, or in a success where
// only a flush was lost, and nothing is left behind.
TEST_F(hallmark_exchange, ends_in_a_stated_text_whichever_allocation_fails) {
    static const std::set<std::string> texts = {
        "(none)",
        "Error allocating memory",
        "Out of memory in read_bignum",
        "Error getting a random number for the key exchange",
        "Error calculating public part of shared secret key",
        "Error allocating primary memory for key check",
        "Error allocating secondary memory for key check",
        "Error calculating secret key",
        "Not enough memory to allocate key storage!",
        "Out of memory during hallmark negotiation",
        "Error retrieving hallmark in mutual authentication phase",
        "Out of memory during challenge / response",
    };
    std::set<std::string> seen;
    bool last_one = false;
    for (uint32_t allocation = 1; !last_one; allocation++) {
        ASSERT_LT(allocation, 1000U);
        forget();
        int64_t blocks = host.blocks;
        host.fail_allocation = allocation;
        std::string failure = open();
        last_one = host.fail_allocation != 0;
        host.fail_allocation = 0;
        for (const char *place :
             {"diffie_hellmann_parameters.modulus: ", "diffie_hellmann_parameters.generator: ",
              "sporadic_bignum.num: ", "Protocol error (auth_challenge.num: ",
              "Server rejected challenge response (auth_response.num: "})
            if (failure.starts_with(place)) failure = failure.substr(strlen(place));
        failure = failure.substr(0, failure.find(')') == std::string::npos || failure == "(none)"
                                        ? failure.size()
                                        : failure.find(')'));
        EXPECT_TRUE(texts.contains(failure)) << failure << " at " << allocation;
        seen.insert(failure);
        var_reset();
        EXPECT_EQ(host.blocks, blocks) << failure << " at " << allocation;
    }
    EXPECT_EQ(seen, texts);
}
