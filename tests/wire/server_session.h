// One connection of the scripted server.
#pragma once

#include "wire/scripted_server.h"

// The server ends the connection here, as it was told.
struct hang_up {};

struct server_session {
    server_session(scripted_server &of, io *stream, const std::string &place);
    void run();

private:
    void opening();
    void receive_wants();
    void make_master_key();
    void make_hallmark(bool has_master_key);
    void prove_agent();
    void prove_server();
    void exchange();
    void answer_time();
    void answer_checkin();
    void answer_configure();
    void answer_downtime();
    void answer_upgrade();

    // The next message of the agent, by its identifier; it must be `expected` where that is not 0.
    uint32_t next_message(uint32_t expected);
    void message_read(const char *name);
    // False when something else has gone in its place.
    bool send(server_step step, const std::string &message);
    bool send_bent(const bend &how, const std::string &message);
    std::string random_number(size_t bytes);
    connection_record &record() { return server.connections[number]; }
    agent_account &account();

    scripted_server &server;
    io *stream;
    wire::channel channel;
    wire::reader reader;
    size_t number;
    bool between_messages = true;
    bool closing = false; // nothing more is sent or read
};
