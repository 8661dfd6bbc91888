// What the parts of a session hand to each other: opening.cpp, exchanges.cpp and session.cpp.
#pragma once

#include "server/record_reader.h"
#include "server/record_writer.h"
#include "server/session.h"

struct session {
    const server_ports &ports;
    const session_link &link;
    memory_share memory;
    io *stream; // plain at first, then the cipher stream over it

    std::string label; // the agent's name as it gave it, for people
    agent_row agent;
    bool new_key = false;

    int messages = 0; // behind the opening
    std::optional<int32_t> skew;
    bool scan_asked = false;
    int64_t unsettled = 0;            // number of the delivery whose acknowledgement is under way, or 0
    bool acknowledged = false;        // the checkin whose answer is under way
    std::vector<action_order> orders; // in the answer that is under way
    bool upgrade_under_way = false;
    std::string configured_now; // fingerprint of the policy whose checks are under way, or ""

    int64_t now() const { return ports.clock().seconds; }
    record_reader reader() { return record_reader(stream, &memory); }
    record_writer writer() const { return record_writer(stream); }
    void enter(session_stage stage) const {
        if (link.enter_stage) link.enter_stage(stage);
    }
};

// Returned, by its address, by a part that has ended the session and told why.
extern const char *const SESSION_OVER;

// From the first byte to the agent's proof. The stream is the cipher stream behind it.
[[nodiscard]] const char *open_session(session &s);

// Answers one message, whose identifier has been read.
[[nodiscard]] const char *answer_message(session &s, uint32_t tag);

// The agent has read the last answer.
[[nodiscard]] const char *confirm_answer(session &s);

// Sends the reason, which the agent logs, and ends the session.
[[nodiscard]] const char *refuse(session &s, const std::string &reason);
