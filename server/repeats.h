// Which results of a delivery the server has already: those that come again because the acknowledgement was
// lost.
//
// An agent keeps its results, a queue for each check, until it reads the acknowledgement, and then drops
// exactly what it had sent. So when an acknowledgement is lost, every queue begins, the next time, with what
// was sent before, in the same order; what a check has found since stands behind it. Results alone do not
// show that: two readings of a check may be alike down to the second, and the same result may come with
// another comment (an agent sends it only with the newest of a queue) or with a time that differs by a second
// or two (it is corrected by the offset of the clocks, which is measured anew for each delivery).
//
// Therefore a delivery is unsettled until the agent is known to have read the answer, and only a delivery
// behind an unsettled one is compared. It is a repetition if, for every check, the beginning of its queue is
// what is unsettled, value by value; a single contradiction means that the agent has dropped the unsettled
// results, and all that comes is new. An agent drops results of a day and more without an acknowledgement, so
// those may be missing at the head.
#pragma once

#include "server/records.h"

#include <cstdint>
#include <vector>

// An unsettled result, oldest first in each check's queue.
struct held_result {
    int64_t id = 0;
    int64_t check_id = 0;
    int64_t agent_time = 0; // by the agent's own clock, to a second or two
    int64_t check_time = 0; // by the server's clock
    uint32_t status = 0;
    result_value value;
};

struct delivered_result {
    int64_t check_id = 0;
    int64_t agent_time = 0;
    uint32_t status = 0;
    const result_value *value = nullptr;
};

struct repeat_verdict {
    bool repetition = false;
    std::vector<int64_t> repeats; // for each delivered result the held one that it repeats, or 0
    std::vector<int64_t> dropped; // held ones that the agent cannot hold any more
};

repeat_verdict find_repeats(const std::vector<held_result> &held,
                            const std::vector<delivered_result> &delivered, int64_t now);
