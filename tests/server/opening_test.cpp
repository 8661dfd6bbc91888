#include "server/server_world.h"

#include "fakes/test_host.h"

namespace {

using opening = server_world;
constexpr const char *AGENTS = "SELECT name, master_key, hallmark, proposed_key, may_rekey FROM agents";

} // namespace

TEST_F(opening, makes_key_and_hallmark_with_a_new_agent) {
    auto agent = connect();
    EXPECT_TRUE((*agent)->open());
    EXPECT_FALSE((*agent)->offered_key);
    EXPECT_FALSE((*agent)->offered_hallmark);
    EXPECT_EQ((*agent)->offered_version, 514);
    EXPECT_EQ(rows(AGENTS),
              std::vector<std::string>{"web1|" + secrets.hostkey + "|" + secrets.hallmark + "||0"});
}

TEST_F(opening, takes_a_known_agent_straight_to_the_proof) {
    open();
    agent_secrets before = secrets;
    auto agent = open();
    EXPECT_TRUE((*agent)->offered_key);
    EXPECT_TRUE((*agent)->offered_hallmark);
    EXPECT_EQ(secrets.hallmark, before.hallmark);
}

TEST_F(opening, renews_a_hallmark_that_the_agent_lacks) {
    open();
    agent_secrets before = secrets;
    secrets.hallmark = "";
    auto agent = open();
    EXPECT_TRUE((*agent)->offered_key);
    EXPECT_FALSE((*agent)->offered_hallmark);
    EXPECT_NE(secrets.hallmark, before.hallmark);
    EXPECT_EQ(secrets.hostkey, before.hostkey);
    EXPECT_EQ(rows("SELECT hallmark FROM agents"), std::vector<std::string>{secrets.hallmark});
}

TEST_F(opening, renews_a_hallmark_that_the_server_lacks) {
    open();
    agent_row known;
    ASSERT_EQ(store.find_agent("web1", "office", &known), nullptr);
    ASSERT_EQ(store.disprove_agent(known), nullptr);
    auto agent = open();
    EXPECT_TRUE((*agent)->offered_key);
    EXPECT_FALSE((*agent)->offered_hallmark);
}

TEST_F(opening, heals_a_stale_hallmark) {
    open();
    secrets.hallmark = std::string(32, '0');
    auto stranger = connect();
    (*stranger)->send((*stranger)->wants());
    (*stranger)->answer_offers();
    EXPECT_TRUE((*stranger)->offered_hallmark);
    stranger->close(); // it reads noise and gives up
    EXPECT_TRUE(observer.noted("failed web1@office: no proof of the hallmark"));
    auto agent = open(); // and still claims the hallmark
    EXPECT_FALSE((*agent)->offered_hallmark);
}

TEST_F(opening, takes_no_proof_that_is_wrong) {
    open();
    auto stranger = connect();
    (*stranger)->send((*stranger)->wants());
    (*stranger)->answer_offers();
    (*stranger)->encipher();
    (*stranger)->expect(wire::auth_challenge);
    (*stranger)->send(encode_record(wire::auth_response, encode_integer(12345)));
    EXPECT_TRUE((*stranger)->is_closed());
    stranger->close();
    EXPECT_TRUE(observer.noted("failed web1@office: wrong proof of the hallmark"));
}

TEST_F(opening, keeps_nothing_of_a_hallmark_that_was_not_proven) {
    open();
    agent_secrets impostor = {.hostkey = "not the key"};
    {
        test_connection stranger(ports, "web1", &impostor);
        stranger->send(stranger->wants());
        stranger->answer_offers();
        EXPECT_TRUE(stranger->offered_key);
        stranger->make_hallmark();
        stranger->encipher();
        stranger->send(encode_record(wire::auth_response, encode_integer(1)));
    }
    EXPECT_EQ(rows("SELECT master_key FROM agents"), std::vector<std::string>{secrets.hostkey});
    open(); // the real one comes in all the same
}

TEST_F(opening, leaves_an_agent_with_an_unknown_key_to_its_own_words) {
    secrets = {.hostkey = "1234", .hallmark = std::string(32, 'a')};
    auto agent = connect();
    (*agent)->send((*agent)->wants());
    wire_value offers = read_wire_value([&](size_t count) { return (*agent)->take(count); });
    EXPECT_EQ(offers.identifier, wire::server_offers);
    EXPECT_FALSE(offers[1][0].truth());
    agent->close();
    EXPECT_TRUE(observer.noted("the agent holds a key that this server does not know"));
    EXPECT_TRUE(rows(AGENTS).empty());
}

TEST_F(opening, makes_no_key_with_an_agent_that_claims_one) {
    secrets = {.hostkey = "1234", .hallmark = std::string(32, 'a')};
    auto agent = connect();
    (*agent)->send((*agent)->wants());
    (*agent)->answer_offers();
    EXPECT_EQ((*agent)->expect(wire::negotiate_nack)[0].content,
              "The agent holds a key that this server does not know");
    EXPECT_TRUE(rows(AGENTS).empty());
}

TEST_F(opening, refuses_an_agent_that_lost_its_key) {
    open();
    secrets = {};
    auto agent = connect();
    EXPECT_FALSE((*agent)->open());
    EXPECT_EQ((*agent)->refusal, "Agent \"web1\" in domain \"office\" is registered with a key that this "
                                 "agent does not have. If it has "
                                 "lost its key, allow it a new one on the server: tnserver rekey");
    EXPECT_TRUE((*agent)->is_closed());
    agent->close();
    EXPECT_TRUE(observer.noted("refused web1@office: Agent"));
}

TEST_F(opening, makes_a_new_key_where_the_policy_allows_it) {
    open();
    set_policy("rekey = true");
    std::string before = secrets.hostkey;
    secrets = {};
    open();
    EXPECT_NE(secrets.hostkey, before);
    EXPECT_EQ(rows(AGENTS),
              std::vector<std::string>{"web1|" + secrets.hostkey + "|" + secrets.hallmark + "||0"});
}

TEST_F(opening, makes_a_new_key_once_by_the_administrators_word) {
    open();
    bool found = false;
    ASSERT_EQ(store.allow_rekey("web1", "office", &found), nullptr);
    EXPECT_TRUE(found);
    secrets = {};
    open();
    EXPECT_EQ(rows("SELECT may_rekey FROM agents"), std::vector<std::string>{"0"});
    secrets = {};
    auto again = connect();
    EXPECT_FALSE((*again)->open());
}

TEST_F(opening, knows_agents_by_name_and_domain) {
    open();
    agent_secrets of_other;
    test_connection other(ports, "web1", &of_other);
    other->domain = "home";
    EXPECT_TRUE(other->open());
    EXPECT_EQ(rows("SELECT domain FROM agents ORDER BY domain"),
              (std::vector<std::string>{"home", "office"}));
    EXPECT_NE(of_other.hostkey, secrets.hostkey);
}

TEST_F(opening, gives_every_agent_an_id_of_its_own) {
    open();
    secrets = {};
    open("web2");
    EXPECT_EQ(rows("SELECT DISTINCT length(host_id) FROM agents"), std::vector<std::string>{"32"});
    EXPECT_EQ(rows("SELECT count(DISTINCT host_id) FROM agents"), std::vector<std::string>{"2"});
}

TEST_F(opening, offers_no_higher_version_than_the_agents) {
    for (auto [version, offered] :
         {std::pair(512, 512), std::pair(513, 513), std::pair(514, 514), std::pair(767, 514)}) {
        secrets = {};
        auto agent = connect("v" + std::to_string(version));
        (*agent)->version = version;
        EXPECT_TRUE((*agent)->open())
            << version; // 512 without, the others with a negotiate_ack behind the key
        EXPECT_EQ((*agent)->offered_version, offered);
    }
}

TEST_F(opening, refuses_another_major_version) {
    for (int version : {511, 768}) {
        auto agent = connect();
        (*agent)->version = version;
        EXPECT_FALSE((*agent)->open());
        EXPECT_EQ((*agent)->refusal, "This server speaks version 2 of the protocol, the agent version " +
                                         std::to_string(version >> 8));
    }
}

TEST_F(opening, refuses_another_major_version_whatever_follows_it) {
    auto agent = connect();
    (*agent)->send(std::string("\x60\x80") + encode_integer(768) + "\xBF\xFF\xFF");
    EXPECT_EQ((*agent)->expect(wire::negotiate_nack)[0].content,
              "This server speaks version 2 of the protocol, the agent version 3");
}

TEST_F(opening, refuses_names_without_sense) {
    auto nameless = connect("");
    EXPECT_FALSE((*nameless)->open());
    EXPECT_EQ((*nameless)->refusal, "An agent needs a name");
    auto beeping = connect("web\a1");
    EXPECT_FALSE((*beeping)->open());
    EXPECT_EQ((*beeping)->refusal, "The name or the domain holds a control character");
}

TEST_F(opening, takes_no_new_agent_where_the_policy_forbids_it) {
    open();
    set_policy("accept_new = false");
    open();
    agent_secrets of_other;
    test_connection other(ports, "web2", &of_other);
    EXPECT_FALSE(other->open());
    EXPECT_EQ(other->refusal, "This server takes no new agents");
}

TEST_F(opening, takes_as_many_agents_as_the_policy_says) {
    set_policy("max_agents = 1");
    open();
    open();
    agent_secrets of_other;
    test_connection other(ports, "web2", &of_other);
    EXPECT_FALSE(other->open());
    EXPECT_EQ(other->refusal, "This server has as many agents as it takes");
}

TEST_F(opening, refuses_a_public_value_that_gives_the_key_away) {
    for (const std::string &value :
         {encode_integer(0), encode_integer(1), encode(wire::integer, std::string(128, '\xFF'))}) {
        auto agent = connect();
        (*agent)->send((*agent)->wants());
        (*agent)->answer_offers();
        (*agent)->expect(wire::key_parameters);
        (*agent)->send(encode_record(wire::sporadic_number, value));
        EXPECT_TRUE((*agent)->is_closed());
    }
    EXPECT_TRUE(rows(AGENTS).empty());
}

// The connection breaks when the agent has its key and the server has not heard of it.
TEST_F(opening, lets_an_agent_come_back_whose_key_was_not_proven) {
    {
        auto agent = connect();
        (*agent)->send((*agent)->wants());
        (*agent)->answer_offers();
        (*agent)->make_key();
        agent->close(peer_end::lost);
    }
    EXPECT_EQ(rows(AGENTS), std::vector<std::string>{"web1|||" + secrets.hostkey + "|0"});
    auto agent = open();
    EXPECT_TRUE((*agent)->offered_key);
    EXPECT_EQ(rows(AGENTS),
              std::vector<std::string>{"web1|" + secrets.hostkey + "|" + secrets.hallmark + "||0"});
}

// The connection breaks before the agent has its key.
TEST_F(opening, makes_another_key_with_an_agent_that_got_none) {
    {
        auto agent = connect();
        (*agent)->send((*agent)->wants());
        (*agent)->answer_offers();
        (*agent)->make_key();
    }
    std::string lost = secrets.hostkey;
    secrets = {};
    auto agent = open();
    EXPECT_FALSE((*agent)->offered_key);
    EXPECT_NE(secrets.hostkey, lost);
}

// A connection that breaks in the middle of a new key: the agent may hold the one or the other.
class opening_with_two_keys : public server_world {
protected:
    opening_with_two_keys() {
        open();
        old_secrets = secrets;
        set_policy("rekey = true");
        secrets = {};
        auto agent = connect();
        (*agent)->send((*agent)->wants());
        (*agent)->answer_offers();
        (*agent)->make_key();
        agent->close(peer_end::lost);
        EXPECT_EQ(rows("SELECT master_key, proposed_key FROM agents"),
                  std::vector<std::string>{old_secrets.hostkey + "|" + secrets.hostkey});
    }
    // The agent learns that the hallmark it made does not fit, and gives up.
    void fail_once() {
        auto agent = connect();
        (*agent)->send((*agent)->wants());
        (*agent)->answer_offers();
        (*agent)->make_hallmark();
        agent->close();
        secrets.hallmark = "";
    }
    agent_secrets old_secrets;
};

TEST_F(opening_with_two_keys, keeps_the_old_one_if_that_is_proven) {
    fail_once();
    fail_once();
    secrets = old_secrets;
    open();
    EXPECT_EQ(rows(AGENTS),
              std::vector<std::string>{"web1|" + old_secrets.hostkey + "|" + secrets.hallmark + "||0"});
}

TEST_F(opening_with_two_keys, takes_the_new_one_if_that_is_proven) {
    fail_once();
    open();
    EXPECT_EQ(rows(AGENTS),
              std::vector<std::string>{"web1|" + secrets.hostkey + "|" + secrets.hallmark + "||0"});
    EXPECT_NE(secrets.hostkey, old_secrets.hostkey);
}

TEST_F(opening, offers_no_hallmark_of_another_key_than_the_one_in_turn) {
    open();
    set_policy("rekey = true");
    agent_secrets of_stranger;
    test_connection stranger(ports, "web1", &of_stranger);
    stranger->send(stranger->wants());
    stranger->answer_offers();
    stranger->make_key();
    auto agent = connect();
    (*agent)->send((*agent)->wants());
    (*agent)->answer_offers();
    EXPECT_TRUE((*agent)->offered_key);
    EXPECT_FALSE((*agent)->offered_hallmark);
}

TEST_F(opening, changes_nothing_when_the_agent_turns_away) {
    open();
    auto stored = rows(AGENTS);
    auto agent = connect();
    (*agent)->send((*agent)->wants());
    agent->close();
    EXPECT_EQ(rows(AGENTS), stored);
}

TEST_F(opening, says_nothing_of_a_connection_without_a_word) {
    connect()->close();
    EXPECT_TRUE(observer.notes.empty());
}

TEST_F(opening, tells_of_a_connection_that_speaks_something_else) {
    auto agent = connect();
    (*agent)->send("GET / HTTP/1.0\r\n\r\n");
    EXPECT_TRUE((*agent)->is_closed());
    agent->close();
    EXPECT_TRUE(observer.noted("failed : expected client_wants, got tag"));
}

TEST_F(opening, turns_an_agent_away_that_has_too_many_connections) {
    int64_t asked_for = 0;
    test_connection agent(ports, "web1", &secrets, [&](int64_t agent_id) {
        asked_for = agent_id;
        return false;
    });
    EXPECT_TRUE(agent->open());
    EXPECT_TRUE(agent->is_closed());
    agent.close();
    EXPECT_EQ(asked_for, 1);
    EXPECT_TRUE(observer.noted("the agent has too many connections"));
}

TEST_F(opening, is_an_opening_until_the_proof) {
    auto agent = connect();
    (*agent)->send((*agent)->wants());
    (*agent)->answer_offers();
    (*agent)->make_key();
    (*agent)->make_hallmark();
    EXPECT_EQ(agent->stages, std::vector{session_stage::opening});
    (*agent)->encipher();
    (*agent)->prove();
    agent->close();
    EXPECT_EQ(agent->stages, (std::vector{session_stage::opening, session_stage::exchange}));
}

TEST_F(opening, fails_without_random_bytes) {
    ports.random = [](void *, size_t) { return false; };
    auto agent = connect();
    (*agent)->send((*agent)->wants());
    (*agent)->answer_offers();
    EXPECT_TRUE((*agent)->is_closed());
    agent->close();
    EXPECT_TRUE(observer.noted("no memory or no random bytes"));
}

// Every beginning of a whole opening, cut off behind each byte.
TEST_F(opening, survives_an_end_behind_every_byte) {
    open();
    std::string wants;
    {
        auto agent = connect();
        wants = (*agent)->wants();
    }
    for (size_t length = 1; length < wants.size(); length++) {
        auto agent = connect();
        (*agent)->send(wants.substr(0, length));
        agent->close();
    }
    open();
}
