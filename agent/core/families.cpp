#include "core/families.h"

#include "core/os_arch.h"
#include "core/schedule.h"
#include "core/upgrade.h"
#include "devtree/check_table.h"
#include "logcheck/log_check.h"
#include "logcheck/log_rules.h"
#include "logcheck/log_scan.h"
#include "platform/fatal.h"
#include "probes/hw/ipmi_sensors.h"
#include "probes/os/drives.h"
#include "probes/os/memory.h"
#include "probes/os/perf_counter.h"
#include "probes/os/system_load.h"
#include "protocol/checkin.h"
#include "protocol/configure.h"

// In scan order. A row without functions offers nothing, and a check of it finds an unknown device.
static check_entry rows[] = {
    {"fs", scan_mounts, check_fs, 0},
    {"mem", scan_meminfo, check_mem, 0},
    {"system", scan_system, check_system, 0},
    {"proc", nullptr, nullptr, 0},
    {"smart", nullptr, nullptr, 0},
    {"ifthrough", nullptr, nullptr, 0},
    {"ifevents", nullptr, nullptr, 0},
    {"custom", nullptr, nullptr, 0},
    {"log", scan_log, check_log, CHECK_SELF_QUEUE},
    {"scm", nullptr, nullptr, 0},
    {"perf", nullptr, check_perfcnt, 0},
    {"action", nullptr, nullptr, 0},
    {"safte", nullptr, nullptr, 0},
    {"ipmisens", scan_ipmi_sensors, check_ipmi_sensor, 0},
    {"csmiplus", nullptr, nullptr, 0},
    {"block", nullptr, nullptr, 0},
    {},
};

void connect_rooms() {
    check_table = rows;
    fatal_cleanup = platform_cleanup;
    start_download_hook = start_download;
    checkin_overdue_hook = checkin_overdue;
    log_rule_resolve_hook = log_rule_resolve;
}

void families_reset() {
    for (check_entry *row = rows; row->name != nullptr; row++)
        row->flags &= ~CHECK_DISABLED;
}
