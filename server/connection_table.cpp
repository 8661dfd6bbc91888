#include "server/connection_table.h"

#include <algorithm>

// A place whose connection has been cut is free in a moment, and counts as free at once.
bool connection_table::make_room() {
    auto is_open = [](const auto &entry) { return !entry.second.is_cut; };
    auto count = static_cast<size_t>(std::count_if(taken.begin(), taken.end(), is_open));
    if (count < places) return taken.size() < 2 * places; // threads end slower than they are cut
    for (auto &[number, open] : taken) {
        if (open.agent_id != 0 || open.is_cut) continue;
        open.is_cut = true;
        cut(open.socket);
        return taken.size() < 2 * places;
    }
    return false;
}

uint64_t connection_table::add(int socket) {
    std::lock_guard lock(mutex);
    if (!make_room()) return 0;
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
