#include "core/host.h"

#include "core/command_pipe_ops.h"
#include "core/parent_pipes_ops.h"
#include "core/signals.h"
#include "custom/custom_ops.h"
#include "logcheck/log_scan_ops.h"
#include "platform/clock.h"
#include "platform/crash.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/files.h"
#include "platform/regex.h"
#include "platform/registry.h"
#include "platform/sockets_ops.h"
#include "platform/threads.h"
#include "platform/waits.h"
#include "probes/hw/ipmi_channel_ops.h"
#include "probes/hw/kernel_ops.h"
#include "probes/hw/raid_ops.h"
#include "probes/hw/scsi_ops.h"
#include "probes/hw/smart_ops.h"
#include "probes/os/counter_provider.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/memory_ops.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/processes_ops.h"
#include "probes/os/services_ops.h"
#include "settings/places.h"
#include "settings/registry_file.h"

void use_host() {
    // platform
    clock_host = &clock_ops_host;
    crash_host = &crash_ops_host;
    error_host = &error_ops_host;
    event_host = &event_ops_host;
    files_host = &files_ops_host;
    process_host = &process_ops_host;
    random_host = &random_ops_host;
    regex_host = &regex_ops_host;
    sockets_host = &sockets_ops_host;
    threads_host = &threads_ops_host;
    waits_host = &waits_ops_host;

    // settings: files stand for the registry
    places_host = &places_ops_host;
    registry_host = &registry_file_ops;

    // probes of the operating system
    counter_sources_host = &counter_sources_ops_host;
    drives_host = &drives_ops_host;
    host_info_host = &host_info_ops_host;
    memory_host = &memory_ops_host;
    perf_counter_host = &perf_counter_ops_host;
    processes_host = &processes_ops_host;
    services_host = &services_ops_host;

    // probes of the hardware
    ipmi_channel_host = &ipmi_channel_ops_host;
    kernel_host = &kernel_ops_host;
    raid_host = &raid_ops_host;
    scsi_host = &scsi_ops_host;
    smart_host = &smart_ops_host;

    // log checks
    log_scan_host = &log_scan_ops_host;
    log_path_style_in_force = log_scan_host->style;

    // the administrator's programs
    custom_host = &custom_ops_host;

    // the process and its neighbours
    command_pipe_host = &command_pipe_ops_host;
    parent_pipe_host = &parent_pipe_ops_host;
    signals_host = &signals_ops_host;
}
