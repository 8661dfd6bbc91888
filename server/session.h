// One connection of an agent: the opening with its mutual proof, then whatever exchange the agent has come
// for.
#pragma once

#include "crypto/dh.h"
#include "server/agent_store.h"
#include "server/memory_pool.h"
#include "server/policy.h"
#include "server/server_observer.h"
#include "server/upgrade_offer.h"

#include <functional>
#include <string>

struct io;

struct server_time {
    int64_t seconds = 0;
    int32_t microseconds = 0;
};

// What all sessions share.
struct server_ports {
    agent_store *store = nullptr;
    const policy *rules = nullptr;
    server_observer *observer = nullptr;
    memory_pool *memory = nullptr;
    upgrade_offer *upgrade = nullptr; // absent where there is none
    std::function<server_time()> clock;
    fill_function random = nullptr;
};

// How far a session has come, on which its limits depend: until the proof it is a stranger's; a scan of
// hardware may take an agent minutes, and it fetches an upgrade without haste.
enum class session_stage { opening, exchange, scan, upgrade };

// The connection, as the listener gives it. Both functions may be absent.
struct session_link {
    io *stream = nullptr; // a read that ends in order returns STREAM_ENDED
    std::string address;
    std::function<void(session_stage)> enter_stage;
    std::function<bool(int64_t agent_id)> admit; // false where the agent has too many connections already
};

// Serves the agent until it closes or something fails, and closes the stream.
void run_session(const server_ports &ports, const session_link &link);
