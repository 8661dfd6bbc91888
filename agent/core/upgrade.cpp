#include "core/upgrade.h"

#include "core/download.h"
#include "core/parent_pipes.h"
#include "core/run_loop.h"
#include "platform/agent_log.h"
#include "platform/fatal.h"
#include "platform/threads.h"
#include "platform/waits.h"

uint32_t upgrade_failed;

static waitable *thread;
static agent_config *thread_config; // the thread's own copy of what it needs

// Takes the finished thread out of both tables and closes it.
static void end_download() {
    del_wakeup_event(thread);
    del_wait_event(thread);
    waits_host->CloseHandle(thread);
    free_config(thread_config);
    thread = nullptr;
    thread_config = nullptr;
}

static bool create_thread(const agent_config *config) {
    thread_config = download_config(config);
    if (thread_config == nullptr) return false;
    thread = threads_host->CreateThread(download_thread, thread_config);
    if (thread != nullptr) return true;
    free_config(thread_config);
    thread_config = nullptr;
    return false;
}

void start_download(agent_config *config) {
    if (thread != nullptr) return;
    if (!create_thread(config)) {
        agent_log(LOG_ERROR, "Failed unleashing download thread");
        return;
    }
    if (!threads_host->SetThreadPriority(thread, THREAD_PRIORITY_IDLE))
        agent_log(LOG_WARNING, "Failed decreasing download thread priority, continuing at normal priority");
    if (add_wakeup_event(thread, nullptr) == 0) agent_log(LOG_WARNING, "add_wakeup_handle failed");
    if (add_wait_event(thread) == 0) agent_log(LOG_WARNING, "add_wakeup_handle failed");
    if (!threads_host->ResumeThread(thread)) {
        agent_log(LOG_ERROR, "Failed unleashing download thread");
        end_download();
        return;
    }
    agent_log(LOG_NORMAL, "Server has an upgrade, downloading ...");
}

void poll_download() {
    if (thread == nullptr) return;
    uint32_t code;
    if (!threads_host->GetExitCodeThread(thread, &code)) {
        end_download();
        agent_log(LOG_TRACE, "Returning!");
        return;
    }
    if (code == STILL_ACTIVE) return;
    end_download();
    if (code != 0) {
        agent_log(LOG_WARNING, "Download failed");
        return;
    }
    agent_log(LOG_NORMAL, "Download complete");
    upgrade_pending = 1;
    report_upgrade();
}

void attempt_upgrade() {
    agent_log(LOG_NORMAL, "Attempting automatic upgrade");
    process_exit(0);
}

void upgrade_reset() {
    upgrade_failed = 0;
    free_config(thread_config);
    thread_config = nullptr;
    thread = nullptr;
}
