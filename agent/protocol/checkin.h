// The checkin: one short connection that delivers results, and may bring a new configuration, actions and the
// news of an upgrade. Results stay in their queues until the server has acknowledged them.
#pragma once

#include "devtree/devtree.h"
#include "platform/io.h"
#include "settings/settings.h"

#include <cstdint>

// Most results that one checkin delivers. It grows with each good one and falls back behind trouble.
extern uint32_t results_limit;

// One attempt, with the next server of the list behind a failure. `*out_acked` tells whether the server has
// taken the results, also behind a failure.
[[nodiscard]] const char *checkin(agent_config *config, int32_t *out_acked);
[[nodiscard]] const char *checkin_attempt(agent_config *config, int32_t *out_acked);

// Writes the results of a level of groups and what lies below, at most `*remaining`, which is counted down.
[[nodiscard]] const char *checkin_write_devtree(io *stream, const devtree *group, uint32_t *remaining);

// Removes results in the order in which they were written.
void checkin_drop_results(devtree *group, uint32_t *remaining);

void lift_results_limit();

// Fetches an upgrade, called when the server offers one and the settings allow it. Harmless while unset.
extern void (*start_download_hook)(agent_config *config);

// Puts the limit back to that of a new process, for tests.
void checkin_reset();
