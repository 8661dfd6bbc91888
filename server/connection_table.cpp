#include "server/connection_table.h"

#include <algorithm>
#include <chrono>

// Connections that have been cut end soon, but not at once; as many as there are places may be on their way
// out.
static constexpr auto TIME_TO_LEAVE = std::chrono::milliseconds(200);

size_t connection_table::count_open() const {
    auto is_open = [](const auto &entry) { return !entry.second.is_cut; };
    return static_cast<size_t>(std::count_if(taken.begin(), taken.end(), is_open));
}

// A place whose connection has been cut counts as free.
bool connection_table::make_room() {
    if (count_open() < places) return true;
    for (auto &[number, open] : taken) {
        if (open.agent_id != 0 || open.is_cut) continue;
        open.is_cut = true;
        cut(open.socket);
        return true;
    }
    return false;
}

uint64_t connection_table::add(int socket) {
    std::unique_lock lock(mutex);
    bool fits =
        make_room() && left.wait_for(lock, TIME_TO_LEAVE, [this] { return taken.size() < 2 * places; });
    if (!fits) return 0;
    taken[++last_number] = {.socket = socket};
    return last_number;
}

bool connection_table::name_agent(uint64_t number, int64_t agent_id) {
    std::lock_guard lock(mutex);
    auto is_its = [&](const auto &entry) { return entry.second.agent_id == agent_id; };
    if (static_cast<size_t>(std::count_if(taken.begin(), taken.end(), is_its)) >= places_of_agent)
        return false;
    taken[number].agent_id = agent_id;
    return true;
}

void connection_table::remove(uint64_t number) {
    std::lock_guard lock(mutex);
    taken.erase(number);
    left.notify_all();
}

void connection_table::cut_all() {
    std::lock_guard lock(mutex);
    for (auto &[number, open] : taken) {
        open.is_cut = true;
        cut(open.socket);
    }
}

size_t connection_table::size() const {
    std::lock_guard lock(mutex);
    return taken.size();
}
