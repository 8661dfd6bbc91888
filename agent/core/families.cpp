#include "core/families.h"

#include "core/os_arch.h"
#include "core/schedule.h"
#include "core/upgrade.h"
#include "custom/action.h"
#include "custom/custom_check.h"
#include "devtree/check_table.h"
#include "logcheck/log_check.h"
#include "logcheck/log_rules.h"
#include "logcheck/log_scan.h"
#include "platform/fatal.h"
#include "probes/hw/ipmi_sensors.h"
#include "probes/hw/raid.h"
#include "probes/hw/safte.h"
#include "probes/hw/smart.h"
#include "probes/os/disks.h"
#include "probes/os/drives.h"
#include "probes/os/interfaces.h"
#include "probes/os/memory.h"
#include "probes/os/perf_browse.h"
#include "probes/os/perf_counter.h"
#include "probes/os/processes.h"
#include "probes/os/services.h"
#include "probes/os/system_load.h"
#include "protocol/checkin.h"
#include "protocol/configure.h"

// In scan order. A row without functions offers nothing, and a check of it finds an unknown device.
static check_entry rows[] = {
    {"fs", scan_mounts, check_fs, 0},
    {"mem", scan_meminfo, check_mem, 0},
    {"system", scan_system, check_system, 0},
    {"proc", scan_processes, check_process, 0},
    {"smart", scan_smart_ide, check_smart, 0},
    {"ifthrough", scan_ifthroughput, check_ifthrough, 0},
    {"ifevents", nullptr, check_ifthrough, 0},
    {"custom", scan_custom, check_custom, 0},
    {"log", scan_log, check_log, CHECK_SELF_QUEUE},
    {"scm", scan_services, check_service, 0},
    {"perf", scan_perfcnts, check_perfcnt, 0},
    {"action", scan_action, check_action, 0},
    {"safte", scan_safte, check_safte, 0},
    {"ipmisens", scan_ipmi_sensors, check_ipmi_sensor, 0},
    {"csmiplus", scan_raid, check_raid, 0},
    {"block", scan_block_devices, check_block, 0},
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
