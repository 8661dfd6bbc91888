// The lists of a tree on the wire. What a scan found goes to the server with texts and hints; what shall be
// checked comes back with frequencies and thresholds, and so do the actions to run.
//
// A list is a sequence of indefinite length without a counter. A reader builds a new tree and nothing else;
// behind a failure there is none.
#pragma once

#include "devtree/devtree.h"
#include "platform/io.h"
#include "protocol/records.h"

// Agent to server.

[[nodiscard]] const char *write_devnode(io *stream, const devnode *device);
[[nodiscard]] const char *write_devtree(io *stream, const devtree *group);
[[nodiscard]] const char *write_devtree_list(io *stream, const devtree *first);
[[nodiscard]] const char *write_check_descriptions(io *stream, const check_description *table, int32_t count);

// Server to agent.

// One threshold; null on the wire is -1.
[[nodiscard]] const char *read_check_value_int(io *stream, int32_t *out);
[[nodiscard]] const char *read_check_value_real(io *stream, double *out);

// One time value; null on the wire is -1. A negative tag is read here.
[[nodiscard]] const char *read_check_value_time(io *stream, int64_t *out, int64_t tag);

[[nodiscard]] const char *read_devnode(io *stream, devnode *device, uint32_t tag);
[[nodiscard]] const char *read_devnode_list(io *stream, devtree *parent, devnode **out);
[[nodiscard]] const char *read_devtree(io *stream, devtree *group, uint32_t tag);
[[nodiscard]] const char *read_devtree_list(io *stream, devtree *parent, devtree **out);

[[nodiscard]] const char *read_action_list(io *stream, devtree *parent, devnode **out);
[[nodiscard]] const char *read_action_conf_group(io *stream, devtree *group, uint32_t tag);
[[nodiscard]] const char *read_action_conf_list(io *stream, devtree *parent, devtree **out);

// Reads what an advanced log check has behind its tag, into the device's new lognode.
[[nodiscard]] const char *read_adv_log_check(io *stream, devnode *device, uint32_t tag);
