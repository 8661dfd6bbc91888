// An agent for tests of the server: it speaks every exchange, and a test may bend each step by sending its
// own bytes.
#pragma once

#include "crypto/bignum.h"
#include "server/wire_text.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

// Where an agent's bytes go and come from.
struct agent_line {
    std::function<void(const std::string &)> write;
    std::function<std::string(size_t)> read; // fewer bytes than wanted mean that the server has closed
};

// Thrown where the server has closed in the place of an answer.
struct server_closed {};

struct agent_secrets {
    std::string hostkey, hallmark; // "" for none
};

struct sent_result {
    int64_t time = 0;
    std::vector<std::string> path;
    std::string value; // encoded
    uint32_t status = 0;
    std::string comment;
    std::optional<std::string> conf_id;
};

std::string encode_result(const sent_result &result);
std::string encode_device(const std::string &id, uint32_t type, const std::string &unit,
                          const std::string &hints);
std::string encode_group(const std::string &id, const std::string &devices, const std::string &groups = "");

// Three NULLs, and a hint of which the maximum alone counts.
extern const std::string NO_HINT;
std::string encode_hint(double maximum);

class scripted_agent {
public:
    scripted_agent(agent_line to_server, std::string agent_name, agent_secrets *kept)
        : line(std::move(to_server)), name(std::move(agent_name)), secrets(kept) {}

    int version = 514;
    std::string domain = "office";

    void send(const std::string &bytes);
    // The next message, which must have this identifier. Throws server_closed.
    wire_value expect(const std::string &identifier);
    // Bytes as they come in, deciphered. Throws server_closed.
    std::string take(size_t count);
    // True when the server sends nothing more.
    bool is_closed();

    // The steps of the opening. open() takes them all; false when the server has refused, with `refusal` set.
    bool open();
    std::string wants() const;
    wire_value answer_offers();
    void make_key(bool with_ack = true);
    void make_hallmark();
    void encipher();
    void prove();

    // Exchanges.
    int64_t ask_time(int64_t own_time); // the server's
    void ask_upgrade();
    wire_value configure(const std::string &tree = "", const std::string &host_info = "",
                         const std::string &descriptions = "");
    void send_checkin(const std::vector<sent_result> &results);
    wire_value checkin(const std::vector<sent_result> &results);
    wire_value request_downtime(int64_t minutes);

    int64_t build = 5153;
    std::string refusal;
    bool offered_key = false, offered_hallmark = false;
    int64_t offered_version = 0;
    wire_value parameters; // of the key exchange, if there was one

private:
    std::string read_plain(size_t count);
    std::string response_to(const wire_value &challenge) const;

    agent_line line;
    const std::string name;
    agent_secrets *const secrets;
    bool enciphered = false;
    std::string deciphered; // read, but not asked for yet
};
