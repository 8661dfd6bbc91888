#include "sim/agent_state.h"

#include "core/command_channel.h"
#include "core/families.h"
#include "core/options.h"
#include "core/os_arch.h"
#include "core/run_loop.h"
#include "custom/action.h"
#include "custom/custom_check.h"
#include "devtree/fake_checks.h"
#include "devtree/live_trees.h"
#include "devtree/retention.h"
#include "logcheck/log_conf.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/crash.h"
#include "platform/fatal.h"
#include "platform/sockets.h"
#include "platform/waits.h"
#include "probes/hw/ipmi_sensors.h"
#include "probes/hw/raid.h"
#include "probes/hw/safte.h"
#include "probes/os/counter_names.h"
#include "probes/os/counter_sources.h"
#include "probes/os/drives.h"
#include "probes/os/memory.h"
#include "protocol/configure.h"
#include "protocol/time_sync.h"
#include "settings/registry_file.h"
#include "settings/settings.h"
#include "state/log_rotation.h"
#include "state/variables.h"

static void forget_trees() {
    free_devtree(active_tree);
    free_devtree(action_tree);
    free_clinfo_list(host_info);
    active_tree = action_tree = nullptr;
    host_info = nullptr;
}

static void forget_settings() {
    free_config(config_in_force);
    config_in_force = nullptr;
    user_hive_flag = 0;
    registry_file_reset();
}

void forget_agent_state() {
    // core, whose index points into the trees
    run_loop_reset();
    command_channel_reset();
    options_reset();
    families_reset();
    os_arch_reset();

    // the exchanges, the trees and what checks keep
    configure_reset();
    time_offset = 0;
    forget_trees();
    fake_checks_reset();
    retention_reset();
    counter_names_reset();
    counter_sources_reset();
    drives_reset();
    close_controllers();
    safte_reset();
    ipmi_sensors_reset();
    memory_reset();
    log_conf_reset();
    custom_check_reset();
    action_reset();

    // state, settings and the ground floor
    var_reset();
    log_rotation_reset();
    forget_settings();
    log_reset();
    waits_reset();
    sockets_reset();
    tn_srand(1);
    fatal_cleanup = nullptr;
    crash_reset();
}
