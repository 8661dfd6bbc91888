// Which agents are offered the upgrade: those of a lower build than its own.
//
// One that has fetched it and is of a lower build nevertheless is left alone for a day: its launcher has gone
// back to the old program, and would do so again.
#pragma once

#include "server/upgrade_package.h"

#include <map>
#include <mutex>

inline constexpr int64_t OFFER_AGAIN_S = 86'400;

class upgrade_offer {
public:
    explicit upgrade_offer(const upgrade_package *what) : offered(what) {}

    const upgrade_package &package() const { return *offered; }
    // `build` is the agent's own, if it has told it.
    bool is_due(int64_t agent_id, std::optional<int32_t> build, int64_t now) const;
    // The agent has the whole of it.
    void note_taken(int64_t agent_id, int64_t now);

private:
    const upgrade_package *const offered;
    mutable std::mutex mutex;
    std::map<int64_t, int64_t> taken_at; // by agent, as long as the server runs
};
