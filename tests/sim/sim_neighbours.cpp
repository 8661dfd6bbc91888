#include "sim/sim_neighbours.h"

#include "sim/host_sim.h"
#include "sim/sim_services.h"
#include "sim/sim_waitable.h"

#include <cstring>

struct command_pipe {};

static bool fail_with(uint32_t code) {
    the_sim->last_error = code;
    return false;
}

// ---- threads

static waitable *create_thread(uint32_t (*body)(void *argument), void *argument) {
    if (sim_fails("CreateThread")) return nullptr;
    auto *thread = new waitable{.manual_reset = true, .body = body, .argument = argument};
    thread->exit_code = STILL_ACTIVE;
    the_sim->handles[thread] = true;
    return thread;
}

static bool set_priority(waitable *, int32_t priority) {
    sim_note("SetThreadPriority", priority);
    return !sim_fails("SetThreadPriority", priority);
}

static bool resume_thread(waitable *thread) {
    if (sim_fails("ResumeThread")) return false;
    the_sim->start_thread([thread] {
        uint32_t code = thread->body(thread->argument);
        thread->exit_code = code;
        thread->signalled = true;
    });
    return true;
}

static bool exit_code_of(waitable *thread, uint32_t *out) {
    if (sim_fails("GetExitCodeThread")) return fail_with(6);
    *out = thread->exit_code;
    return true;
}

static void wait_for_end(waitable *thread) {
    the_sim->scheduler.wait_until([thread] { return thread->signalled; }, NEVER);
}

// ---- the launcher

static bool read_order(int32_t handle, waitable *stop, uint8_t *out, uint32_t *out_count) {
    sim_launcher *launcher = &the_sim->launcher;
    *out_count = 0;
    if (std::to_string(handle) != SIM_PARENT_READ) return fail_with(6);
    auto stopped = [stop] { return stop != nullptr && stop->signalled; };
    the_sim->scheduler.wait_until([=] { return stopped() || launcher->gone || !launcher->orders.empty(); },
                                  NEVER);
    if (stopped() || launcher->orders.empty()) return fail_with(ERROR_PIPE_ENDED);
    *out = launcher->orders.front();
    launcher->orders.pop_front();
    *out_count = 1;
    return true;
}

static bool write_report(int32_t handle, uint8_t byte, uint32_t *out_count) {
    *out_count = 0;
    if (std::to_string(handle) != SIM_PARENT_WRITE || the_sim->launcher.gone) return fail_with(6);
    if (sim_fails("WriteFile to the launcher", byte)) return fail_with(5);
    if (the_sim->launcher.takes_nothing) return true;
    the_sim->launcher.reports += static_cast<char>(byte);
    *out_count = 1;
    return true;
}

// ---- the command channel

sim_contact sim_channel::connect(sim_client *caller) {
    if (pipe == nullptr) return sim_contact::ABSENT;
    if (client != nullptr || event == nullptr) return sim_contact::BUSY;
    client = caller;
    set_sim_event(event);
    return sim_contact::CONNECTED;
}

static command_pipe *create_pipe() {
    if (sim_fails("CreateNamedPipeA")) return nullptr;
    the_sim->last_error = 0;
    return the_sim->channel.pipe = new command_pipe;
}

static bool connect_pipe(command_pipe *, waitable *event) {
    sim_channel *channel = &the_sim->channel;
    if (event == nullptr) {
        if (sim_fails("ConnectNamedPipe, to take the client")) return fail_with(536);
        channel->event = nullptr;
        return fail_with(channel->client != nullptr ? ERROR_PIPE_IS_OPEN : 536U);
    }
    if (sim_fails("ConnectNamedPipe")) return fail_with(8);
    event->signalled = false;
    channel->event = event;
    return fail_with(ERROR_PIPE_IS_WAITING);
}

static bool read_command(command_pipe *, char *buffer, size_t size, uint32_t *out_count) {
    sim_client *client = the_sim->channel.client;
    *out_count = 0;
    if (client->vanishes) return fail_with(ERROR_PIPE_ENDED);
    if (client->silent) {
        the_sim->scheduler.sleep_until(the_sim->scheduler.now_ms + 1000);
        return fail_with(WAIT_ENDED);
    }
    *out_count = static_cast<uint32_t>(client->command.copy(buffer, size));
    return client->command.size() <= size || fail_with(234);
}

static bool write_reply(command_pipe *, const char *text, size_t length, uint32_t *out_count) {
    sim_client *client = the_sim->channel.client;
    *out_count = 0;
    if (client->deaf) return fail_with(232);
    client->reply.assign(text, length);
    *out_count = static_cast<uint32_t>(length);
    return true;
}

static void flush_pipe(command_pipe *) {}

static bool disconnect_pipe(command_pipe *) {
    sim_client *client = the_sim->channel.client;
    if (client != nullptr) client->served = true;
    the_sim->channel.client = nullptr;
    return true;
}

static void close_pipe(command_pipe *pipe) {
    the_sim->channel = {};
    delete pipe;
}

// A second process on this host is not simulated: whoever looks for an agent finds none.
static command_pipe *open_pipe() {
    fail_with(2);
    return nullptr;
}

const threads_ops sim_threads = {.CreateThread = create_thread,
                                 .SetThreadPriority = set_priority,
                                 .ResumeThread = resume_thread,
                                 .GetExitCodeThread = exit_code_of,
                                 .WaitForSingleObject = wait_for_end};
const parent_pipe_ops sim_parent_pipes = {.ReadFile = read_order, .WriteFile = write_report};
const command_pipe_ops sim_command_pipe = {.CreateNamedPipeA = create_pipe,
                                           .ConnectNamedPipe = connect_pipe,
                                           .ReadFile = read_command,
                                           .WriteFile = write_reply,
                                           .FlushFileBuffers = flush_pipe,
                                           .DisconnectNamedPipe = disconnect_pipe,
                                           .CloseHandle = close_pipe,
                                           .CreateFileA = open_pipe};
