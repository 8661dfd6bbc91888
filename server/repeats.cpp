#include "server/repeats.h"

#include <algorithm>
#include <cstdlib>
#include <map>

namespace {

// How much a result's time may differ between two deliveries.
constexpr int64_t TIME_TOLERANCE_S = 2;
// Results younger than this are never dropped unacknowledged.
constexpr int64_t SHORTEST_RETENTION_S = 86400;
// A delivery behind a failed one is cut at this many results, and not below.
constexpr size_t SMALLEST_CUT = 50;

// One check's queue: indexes of what is held and of what is delivered.
struct queue_pair {
    std::vector<size_t> held, delivered;
};

struct comparison {
    const std::vector<held_result> &held;
    const std::vector<delivered_result> &delivered;
    int64_t now;
    bool whole; // nothing was cut off, so every queue has come in full

    bool may_be_gone(size_t index) const { return now - held[index].check_time >= SHORTEST_RETENTION_S; }

    bool same(size_t held_index, size_t delivered_index) const {
        const held_result &old = held[held_index];
        const delivered_result &come = delivered[delivered_index];
        return old.status == come.status && old.value == *come.value &&
               std::abs(old.agent_time - come.agent_time) <= TIME_TOLERANCE_S;
    }

    // Fills in what repeats what. False on a contradiction.
    bool compare(const queue_pair &queue, repeat_verdict *out) const;
};

bool comparison::compare(const queue_pair &queue, repeat_verdict *out) const {
    size_t first = 0;
    while (first < queue.held.size() && !same(queue.held[first], queue.delivered[0])) {
        if (!may_be_gone(queue.held[first])) return false;
        out->dropped.push_back(held[queue.held[first++]].id);
    }
    size_t common = std::min(queue.held.size() - first, queue.delivered.size());
    if (whole && first + common < queue.held.size()) return false;
    for (size_t i = 0; i < common; i++) {
        if (!same(queue.held[first + i], queue.delivered[i])) return false;
        out->repeats[queue.delivered[i]] = held[queue.held[first + i]].id;
        out->repetition = true;
    }
    return true;
}

} // namespace

repeat_verdict find_repeats(const std::vector<held_result> &held,
                            const std::vector<delivered_result> &delivered, int64_t now) {
    repeat_verdict all_new = {.repeats = std::vector<int64_t>(delivered.size(), 0)};
    if (held.empty()) return all_new;
    comparison all = {held, delivered, now, delivered.size() < SMALLEST_CUT};
    std::map<int64_t, queue_pair> queues;
    for (size_t i = 0; i < held.size(); i++)
        queues[held[i].check_id].held.push_back(i);
    for (size_t i = 0; i < delivered.size(); i++)
        queues[delivered[i].check_id].delivered.push_back(i);

    repeat_verdict verdict = all_new;
    for (const auto &[check, queue] : queues) {
        bool fits = queue.delivered.empty() ? !all.whole || all.may_be_gone(queue.held.back())
                                            : all.compare(queue, &verdict);
        if (!fits) return all_new;
    }
    return verdict.repetition ? verdict : all_new;
}
