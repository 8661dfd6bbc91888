#include "core/upgrade.h"

#include "platform/agent_log.h"
#include "platform/fatal.h"

uint32_t upgrade_failed;

static int32_t parent_read;
static int32_t parent_write;

void set_parent_pipes(int32_t read_end, int32_t write_end) {
    parent_read = read_end;
    parent_write = write_end;
}

void attempt_upgrade() {
    agent_log(LOG_NORMAL, "Attempting automatic upgrade");
    process_exit(0);
}

void upgrade_reset() {
    upgrade_failed = 0;
    parent_read = parent_write = 0;
}
