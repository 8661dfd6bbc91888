// The server's side of every exchange, for tests: right by default, and bent where a test says so.
//
//     scripted_server server;
//     server.checks = {{"mem", {wire::continuous("phys", 60)}}};
//     server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::CLOSE_BEFORE});
//     ... serve(stream) runs one connection to its end, on a simulated socket or on a memory pipe
//     server.deliveries.back().results
//
// One server object is one data base: several addresses may lead to it. It knows its agents by domain and
// name.
#pragma once

#include "wire/wire_messages.h"

#include <functional>
#include <map>
#include <random>

// What the server sends, in the order of a connection.
enum class server_step {
    OFFERS,
    DH_PARAMETERS,
    DH_PUBLIC,
    KEY_ACK,
    NONCE,
    CHALLENGE,
    RESPONSE,
    TIME,
    CHECKIN_RESP,
    SCAN_RESP,
    CONFIGURE_RESP,
    DOWNTIME_RESP,
    UPGRADE_RESP,
};

enum class bend_kind {
    CLOSE_BEFORE, // closes in the message's place
    CLOSE_AFTER,
    CUT,      // sends the first `amount` bytes of it and closes
    SILENT,   // sends nothing and waits for the agent to close
    LEFT_OUT, // sends nothing and goes on
    DELAY,    // `amount` seconds ahead of it
    NACK,     // a negotiate_nack with `bytes` as its reason in its place
    REPLACE,  // `bytes` in its place, enciphered where the message would be
    RAW,      // `bytes` in its place as they are
    NOISE,    // `amount` random bytes in its place, as they are
    FILLERS,  // `amount` filler bytes ahead of it
    DEFINITE, // its outermost length in the definite form
    APPEND,   // `bytes` as further values at its end
};

struct bend {
    server_step at;
    bend_kind kind;
    int64_t amount = 0;
    std::string bytes;
    uint32_t times = 1; // how often, behind the first `skip` times that the step comes
    uint32_t skip = 0;
};

// What the server keeps about one agent.
struct agent_account {
    std::string master_key; // decimal; empty for none
    bool key_proven = false;
    std::string hallmark; // empty for none
    uint32_t configured = 0;
    bool tree_seen = false;
};

struct delivery {
    uint32_t connection;
    int64_t time; // on the server's clock
    std::vector<wire::result> results;
    bool answered; // the checkin_resp has left
};

struct connection_record {
    uint32_t number;
    std::string place; // where the agent has called
    int64_t opened;
    wire::client_wants wants;
    std::vector<std::string> messages; // by name, of both sides, in order
    std::string ending;
    bool authenticated = false;
};

struct scripted_server {
    explicit scripted_server(uint64_t seed = 1);

    // Serves one connection to its end, and closes the stream.
    void serve(io *stream, const std::string &place = "");

    // What time it is, and how to let it pass; a clock that stands unless set.
    std::function<int64_t()> clock;
    std::function<void(int64_t seconds)> sleep;
    std::mt19937_64 chance;

    // Opening.
    int32_t version = 514;
    std::optional<bool> claim_master_key; // absent for the truth
    std::optional<bool> claim_hallmark;
    std::string modulus = wire::magnitude_of(0x1FFFFFFFFFFFFFFF); // a Mersenne prime
    std::string generator = wire::magnitude_of(37);
    bool wrong_response = false;
    std::vector<bend> bends;

    // Configuration. Changing `checks` takes configure() to be told to agents.
    std::string host_id = "host-1";
    int32_t checkin_frequency = 60;
    std::vector<wire::server_place> servers;
    std::vector<wire::group> checks;
    void configure(std::vector<wire::group> wanted);
    uint32_t configuration = 1;
    bool scan_first = true;   // asks an agent that has not shown a tree yet to scan
    bool scan_wanted = false; // asks for one scan more
    bool scan_nack = false;

    // Checkins.
    int64_t time_skew = 0; // seconds that the server's clock is ahead
    bool acknowledge = true;
    std::optional<bool> changed;             // absent for the truth
    std::vector<wire::action_group> actions; // go with the next answer
    bool upgrade_available = false;
    std::string package;
    bool downtime_granted = true;
    std::string downtime_message = "Downtime granted";

    // The operator releases the agents' keys.
    void release_keys();

    // What came.
    std::map<std::string, agent_account> accounts; // by "domain/name"
    std::vector<connection_record> connections;
    std::vector<wire::configuration_request> requests;
    std::vector<delivery> deliveries;
    std::vector<int64_t> downtimes; // minutes
    uint32_t checkins = 0;          // answered
    uint32_t acknowledged = 0;      // answered with an acknowledgement
    uint32_t registrations = 0;     // configure_resp sent
    uint32_t upgrades = 0;
    std::vector<std::string> violations; // what an agent must not send

    // The last tree that was shown; empty where there was none.
    std::vector<wire::offered_group> tree() const;
    // All results that have come, or those of one check, in the order of their coming.
    std::vector<wire::result> results(const std::string &path = "") const;
    std::vector<int64_t> times(const std::string &path) const;
    uint32_t count_messages(const std::string &name) const;
    int64_t now() const { return (clock ? clock() : 0) + time_skew; }
};
