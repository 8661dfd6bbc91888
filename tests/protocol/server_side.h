// The server's side of a conversation, a step each time the agent waits for an answer.
//
// It takes the agent's bytes apart and makes its own without the agent's codec, and keeps the two secrets as
// a server does. The agent never speaks out of turn, so a step finds all that was sent since the last one,
// and has to take all of it.
#pragma once

#include "protocol/scripted_sockets.h"
#include "protocol/wire.h"

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

// What a server knows of an agent.
struct server_secrets {
    std::string hostkey;  // decimal
    std::string hallmark; // 32 hexadecimal characters
};

struct server_side {
    explicit server_side(scripted_connection &served);
    server_side(const server_side &) = delete;
    server_side &operator=(const server_side &) = delete;

    // What is to come; when nothing is, the server stays silent.
    std::deque<std::function<void()>> steps;
    void then(std::function<void()> step) { steps.push_back(std::move(step)); }
    // A step ahead of those that wait.
    void next(std::function<void()> step) { steps.push_front(std::move(step)); }

    // The agent's next message.
    wire_node take();
    // Takes the next message and compares its words.
    void expect(const std::string &words);
    // Sends one or more messages up to a flush.
    void send(const std::string &bytes);
    void close();

    // Deciphers what comes and enciphers what goes, from here on.
    void start_cipher(const std::string &key);

    // Each turn's bytes as they went over the wire, "A" or "S" in front.
    std::vector<std::pair<char, std::string>> turns;

    scripted_connection &connection;
    bool opened = false; // the opening came to its end

private:
    void run_step();
    void receive();
    void note(char who, const std::string &bytes);
    std::string key;
    size_t taken = 0;  // of what the agent has sent
    std::string plain; // received and not yet taken apart
};

// The opening of a conversation, as a server holds it. Names of messages: offers, ack, parameters, public,
// key_ack, nonce, challenge, response.
struct server_opening {
    int64_t version = 514;
    // What the server says that it has; by default what it really has.
    int says_master_key = -1;
    int says_hallmark = -1;
    // Bytes to be sent in the place of a message. With one of the names in `closes` the connection ends
    // there.
    std::map<std::string, std::string> instead;
    std::string closes_at;

    // The group of the key exchange, the server's exponent, its nonce and its challenge, as big-endian bytes.
    std::string modulus = std::string(1, '\x17');
    std::string generator = std::string(1, '\x05');
    std::string exponent = std::string(1, '\x06');
    std::string nonce = "a nonce of 16 b.";
    std::string challenge = "challenge of 16!";

    // What was seen of the agent.
    std::string wants; // the words of its last client_wants
};

// Adds the steps of the opening. Both have to live as long as the connection.
void add_opening(server_side *server, server_secrets *secrets, server_opening *opening);

// The words of md5 and numbers that both sides have to agree on.
std::string md5_bytes(const std::string &text);
std::string md5_hex(const std::string &text);
std::string decimal_of(const std::string &magnitude);
