#include "server/upgrade_offer.h"

#include <cstdio>

std::optional<int32_t> find_build(const std::string &program) {
    static constexpr size_t TEXT_SIZE = 64;
    for (size_t at = program.find("v."); at != std::string::npos; at = program.find("v.", at + 1)) {
        std::string text = program.substr(at, TEXT_SIZE);
        int version[3];
        int build = 0;
        int length = 0;
        sscanf(text.c_str(), "v.%9d.%9d.%9d build %9d on %n", &version[0], &version[1], &version[2], &build,
               &length);
        if (length > 0 && build > 0) return build;
    }
    return std::nullopt;
}

bool upgrade_offer::is_due(int64_t agent_id, std::optional<int32_t> build, int64_t now) const {
    if (!build || *build >= offered->build()) return false;
    std::lock_guard lock(mutex);
    auto found = taken_at.find(agent_id);
    return found == taken_at.end() || now - found->second >= OFFER_AGAIN_S;
}

void upgrade_offer::note_taken(int64_t agent_id, int64_t now) {
    std::lock_guard lock(mutex);
    taken_at[agent_id] = now;
}
