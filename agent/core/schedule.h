// When what is due: the arithmetic of checks, checkins and holds.
#pragma once

#include "devtree/devtree.h"

#include <cstdint>

// In a device's `next_check`: a point of time in 1970, so that the check is always overdue, and that can be
// told from a real one.
inline constexpr int64_t BURST_MARK = 17;

extern int32_t failure_count; // failures not yet worked off
extern int64_t last_checkin;  // of the last acknowledged checkin, or of the first check before there was one
extern int64_t hold_until;    // no checkin before this time

// Failures beyond this many more than there are servers do not count.
inline constexpr int32_t FAILURES_BEYOND_SERVERS = 7;

void count_failure();

// Seconds to hold after a failure.
int32_t backoff_seconds();

// The time when the present period between two checkins ends, whatever the hold says.
int64_t checkin_period_end();

// The device of the tree with the earliest `next_check`; the first one met wins among equals. Times of log
// checks are pulled forward for their silence limits on the way.
devnode *find_next_due(devtree *tree);

// Pulls the due time of a log check forward for its silence limits.
void pull_forward_for_silence(devnode *device);

// The first device with `next_check` 0.
devnode *find_unrun_action(devtree *tree);

// Whether the deadline of the checkin has passed, to cut a long read short.
bool checkin_overdue();

void mark_burst(devtree *tree);

// Puts counters and times back to those of a new process, for tests.
void schedule_reset();
