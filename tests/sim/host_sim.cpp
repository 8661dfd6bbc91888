#include "sim/host_sim.h"

#include "core/run_loop.h"
#include "core/startup.h"
#include "fakes/notes.h"
#include "logcheck/log_scan_ops.h"
#include "platform/agent_log.h"
#include "platform/crash.h"
#include "platform/registry.h"
#include "platform/sockets_ops.h"
#include "probes/hw/ipmi_channel_ops.h"
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
#include "settings/registry_file.h"
#include "sim/agent_state.h"
#include "sim/sim_folders.h"
#include "sim/sim_services.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>

host_sim *the_sim;

// All that the agent can touch.
static void use_sim() {
    // platform
    clock_host = &sim_clock;
    crash_host = &sim_crash;
    error_host = &sim_errors;
    event_host = &sim_events;
    files_host = &sim_files;
    heap_host = &sim_heap;
    process_host = &sim_process;
    random_host = &sim_random;
    regex_host = &sim_regex;
    sockets_host = &sim_sockets;
    threads_host = &sim_threads;
    waits_host = &sim_waits;

    // settings: files stand for the registry
    places_host = &sim_places;
    registry_host = &registry_file_ops;

    // probes of the operating system
    counter_sources_host = &sim_counter_sources;
    drives_host = &sim_drives;
    host_info_host = &sim_host_info;
    memory_host = &sim_memory;
    perf_counter_host = &sim_counters;
    processes_host = &sim_processes;
    services_host = &sim_service_manager;

    // probes of the hardware
    ipmi_channel_host = &sim_ipmi_channel;
    raid_host = &sim_raid;
    scsi_host = &sim_scsi;
    smart_host = &sim_smart;

    // log checks
    log_scan_host = &sim_log_scan;
    log_path_style_in_force = log_scan_host->style;

    // the administrator's programs
    custom_host = &sim_custom;

    // the process and its neighbours
    command_pipe_host = &sim_command_pipe;
    parent_pipe_host = &sim_parent_pipes;
    signals_host = &sim_signals;
}

uint64_t scenario_seed(uint64_t otherwise) {
    const char *chosen = getenv("TN_SIM_SEED");
    return chosen != nullptr ? strtoull(chosen, nullptr, 10) : otherwise;
}

static void keep_line(int32_t level, const char *message) {
    the_sim->log.push_back({the_sim->wall_time(), level, message});
    note_text(message);
}

host_sim::host_sim(uint64_t of) : seed(scenario_seed(of)), scheduler(seed) {
    EXPECT_EQ(the_sim, nullptr) << "one simulation at a time";
    the_sim = this;
    settings = {{"server_list", "server"}, {"domain", "example"}, {"name", "agent-1"}, {"loglevel", "-1"}};
    use_sim();
    forget_agent_state();
    agent_log_observer = keep_line;
}

host_sim::~host_sim() {
    kill_agent();
    scheduler.kill_tasks(false);
    if (testing::Test::HasFailure()) {
        std::cerr << "seed " << seed << ", the end of the log:\n";
        for (size_t i = log.size() > 40 ? log.size() - 40 : 0; i < log.size(); i++)
            std::cerr << log[i].time - SIM_START << " " << log[i].level << " " << log[i].text << "\n";
    }
    agent_log_observer = nullptr;
    heap_host = &heap_ops_host;
    the_sim = nullptr;
}

void host_sim::add_server(scripted_server &server, const std::string &name, uint16_t port) {
    server.clock = [this] { return wall_time(); };
    server.sleep = [this](int64_t seconds) { scheduler.sleep_until(scheduler.now_ms + seconds * 1000); };
    network.add(name, port, [&server](io *stream, const std::string &place) { server.serve(stream, place); });
}

// ---- one life of the agent

static void put_settings(const std::string &path, const std::map<std::string, std::string> &settings) {
    std::string text;
    for (const auto &[key, value] : settings)
        text += key + " = " + value + "\n";
    the_sim->disk.put(path, text);
}

void host_sim::start_agent(const std::vector<std::string> &arguments) {
    bury_agent();
    exit_status.reset();
    power_cut = false;
    put_settings("/etc/tarnix/tnagent.conf", settings);
    if (!home.empty()) put_settings(home + "/.config/tarnix/tnagent.conf", user_settings);
    words = {"tnagent"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    scheduler.start("agent", true, [this] { run_in_agent([this] { live(); }); });
}

void host_sim::start_thread(std::function<void()> body) {
    scheduler.start("thread", true, [this, body = std::move(body)] { run_in_agent(body); });
}

// The end of the process, whoever brings it about, is the end of all its threads.
void host_sim::run_in_agent(const std::function<void()> &body) {
    try {
        body();
    } catch (const agent_ended &end) {
        exit_status = end.status;
        scheduler.mark_killed();
    }
}

void host_sim::live() {
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    log_to_stderr();
    start_up(static_cast<int>(argv.size()), argv.data());
    run_loop(restart);
}

// What the system does when a process has gone, and what makes the next one find everything as at its start.
void host_sim::bury_agent() {
    scheduler.kill_tasks(true);
    forget_agent_state();
    sim_services_bury();
    programs.bury();
    network.close_sockets();
    disk.open_files.clear();
}

bool host_sim::run_until(const std::function<bool()> &done, int64_t seconds) {
    scheduler.wait_until([&] { return done() || !agent_runs(); }, scheduler.now_ms + seconds * 1000);
    EXPECT_FALSE(scheduler.stuck) << "everybody waits for what cannot come";
    if (!agent_runs()) bury_agent();
    return done();
}

void host_sim::run_for(int64_t seconds) {
    run_until([] { return false; }, seconds);
}

void host_sim::signal_checkin() {
    force_signalled();
    set_sim_event(signals.user);
}

void host_sim::signal_burst() {
    burst_signalled();
    set_sim_event(signals.user);
}

void host_sim::signal_reopen() {
    reopen_signalled();
    set_sim_event(signals.user);
}

void host_sim::signal_stop() {
    stop_signalled();
    set_sim_event(signals.stop);
    set_sim_event(signals.watch_stop);
}

bool host_sim::stop_agent() {
    signal_stop();
    return run_until([this] { return exit_status.has_value(); }, MINUTE);
}

void host_sim::kill_agent() {
    bury_agent();
}

void host_sim::cut_power() {
    bury_agent();
    disk.cut_power();
}

void host_sim::power_goes() {
    power_cut = true;
    throw task_killed{};
}

// ---- the log

bool host_sim::logged(int32_t level, const std::string &text) const {
    for (const sim_line &line : log)
        if (line.level == level && line.text == text) return true;
    return false;
}

int host_sim::count_logged(const std::string &part) const {
    return static_cast<int>(times_logged(part).size());
}

std::vector<int64_t> host_sim::times_logged(const std::string &part) const {
    std::vector<int64_t> times;
    for (const sim_line &line : log)
        if (line.text.find(part) != std::string::npos) times.push_back(line.time);
    return times;
}

// ---- calls

// What a call was about, made to a text only where somebody wants it.
static std::string words_of(const char *about) {
    return about;
}

static std::string words_of(int64_t about) {
    return std::to_string(about);
}

template <class About>
static void note(const char *name, About about) {
    if (!the_sim->scheduler.in_agent() || !the_sim->calls.tracing) return;
    std::string when = std::to_string(the_sim->scheduler.now_ms);
    the_sim->calls.trace.push_back(when + " " + name + " " + words_of(about));
}

template <class About>
static bool fails(const char *name, About about) {
    sim_calls *calls = &the_sim->calls;
    if (!the_sim->scheduler.in_agent()) return false;
    calls->count++;
    if (calls->tracing) note(("#" + std::to_string(calls->count) + " " + name).c_str(), about);
    if (calls->count != calls->fail_at) return false;
    calls->failed = name;
    calls->failed_about = words_of(about);
    return true;
}

void sim_note(const char *name, const char *about) {
    note(name, about);
}

void sim_note(const char *name, int64_t about) {
    note(name, about);
}

bool sim_fails(const char *name, const char *about) {
    return fails(name, about);
}

bool sim_fails(const char *name, int64_t about) {
    return fails(name, about);
}
