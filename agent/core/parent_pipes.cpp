#include "core/parent_pipes.h"

#include "core/os_arch.h"
#include "core/parent_pipes_ops.h"
#include "core/run_loop.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/threads.h"
#include "platform/waits.h"

const parent_pipe_ops *parent_pipe_host;

namespace {

enum : uint8_t { BYTE_STOP = 0, BYTE_UPGRADE = 1, BYTE_ALIVE = 2 };

int32_t parent_read;
int32_t parent_write;
bool alive_reported;
waitable *watch_thread;
waitable *watch_stop; // ends the watching although the launcher is silent

} // namespace

void set_parent_pipes(int32_t read_end, int32_t write_end) {
    parent_read = read_end;
    parent_write = write_end;
}

static void wake_main_loop() {
    if (signal_ev != nullptr) waits_host->SetEvent(signal_ev);
}

static uint32_t stop_agent(uint32_t code) {
    terminate_flag.store(1, std::memory_order_relaxed);
    wake_main_loop();
    return code;
}

// The thread's body.
static uint32_t watch_parent(void *) {
    for (;;) {
        uint8_t byte = BYTE_STOP;
        uint32_t count = 0;
        if (!parent_pipe_host->ReadFile(parent_read, watch_stop, &byte, &count)) return stop_agent(1);
        if (count == 0 || byte != BYTE_STOP) continue;
        if (upgrade_pending.load(std::memory_order_relaxed) == 0) return stop_agent(0);
        // The launcher's stop crosses the agent's own exit, which stays one for an upgrade.
        wake_main_loop();
        return 0;
    }
}

void start_watching_parent(waitable *stop) {
    if (parent_read == 0) return;
    watch_stop = stop;
    watch_thread = threads_host->CreateThread(watch_parent, nullptr);
    if (watch_thread != nullptr && threads_host->ResumeThread(watch_thread)) return;
    agent_log(LOG_ERROR, "Error starting the thread that watches the launcher: %s", last_error_text());
    if (watch_thread != nullptr) waits_host->CloseHandle(watch_thread); // nobody is to wait for it
    watch_thread = nullptr;
}

void end_watching_parent() {
    if (watch_thread == nullptr) return;
    threads_host->WaitForSingleObject(watch_thread);
    waits_host->CloseHandle(watch_thread);
    watch_thread = nullptr;
}

// Returns whether the byte is on its way, as far as the host says so.
static bool write_parent(uint8_t byte, uint32_t *out_count) {
    *out_count = 0;
    if (parent_pipe_host->WriteFile(parent_write, byte, out_count)) return true;
    agent_log(LOG_ERROR, "WriteFile failed: %s", last_error_text());
    return false;
}

void report_upgrade() {
    uint32_t count;
    write_parent(BYTE_UPGRADE, &count);
    if (count != 1) agent_log(LOG_ERROR, "WriteFile returned %d", static_cast<int>(count));
}

void report_alive() {
    if (alive_reported || parent_write == 0) return;
    uint32_t count;
    alive_reported = write_parent(BYTE_ALIVE, &count);
}

void parent_pipes_reset() {
    set_parent_pipes(0, 0);
    alive_reported = false;
    watch_thread = watch_stop = nullptr;
}
