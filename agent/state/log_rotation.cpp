#include "state/log_rotation.h"

#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/heap.h"
#include "platform/text.h"
#include "platform/version.h"
#include "platform/waits.h"
#include "settings/settings.h"

#include <cstdio>
#include <cstring>

std::atomic<int32_t> reopen_log_flag;

namespace {

int64_t log_created; // 0 until first asked for

constexpr int64_t DAY = 86400;
constexpr int RETRIES = 5;
constexpr int64_t RETRY_PAUSE = 10; // seconds

} // namespace

static text_guard old_name(const char *path, int32_t number) {
    size_t size = strlen(path) + 32;
    text_guard name(static_cast<char *>(heap_alloc(size)));
    if (name != nullptr) snprintf(name.get(), size, "%s.%i.txt", path, number);
    return name;
}

const char *rotate_logs(const char *path, int32_t count) {
    if (count < 2) return nullptr;
    text_guard to = old_name(path, count);
    if (to != nullptr) files_host->DeleteFileA(to.get());
    for (int32_t i = count; i >= 2 && to != nullptr; i--) {
        text_guard from = old_name(path, i - 1);
        if (from != nullptr) files_host->MoveFileA(from.get(), to.get()); // gaps in the family are normal
        to = std::move(from);
    }
    if (to == nullptr || !files_host->MoveFileA(path, to.get()))
        return format_error("Rename failed with error: %s", last_error_text());
    return nullptr;
}

static bool rotates(const agent_config *config) {
    return config->log_days != 0 && config->max_log_files != 0;
}

// Another program may have moved the log away and wants only a new one; then there is nothing to be renamed.
static bool moved_away(const char *path) {
    file_facts open_one;
    file_facts at_path;
    if (!files_host->facts_of(log_stream(), &open_one)) return false;
    if (!files_host->facts_at(path, &at_path)) return true;
    return open_one.volume != at_path.volume || open_one.number != at_path.number;
}

// A stop ends the pause that it finds, and must not wait for those behind it.
static void open_again(const char *path) {
    for (int attempt = 0; log_open(path) == NO_FILE && attempt < RETRIES; attempt++) {
        if (terminate_flag.load(std::memory_order_relaxed) != 0) return;
        sleep_interruptible(RETRY_PAUSE);
    }
}

// A request that comes meanwhile may speak of the file that has just been opened, and holds for the next
// time.
static void rotate_and_reopen(const agent_config *config, int64_t now) {
    reopen_log_flag = 0;
    agent_log(LOG_NORMAL, "Re-opening log...");
    bool renames = rotates(config) && !moved_away(config->logfile);
    log_close();
    const char *error = renames ? rotate_logs(config->logfile, config->max_log_files) : nullptr;
    files_host->restart_age(config->logfile);
    open_again(config->logfile);
    log_created = now;
    agent_log(LOG_NORMAL, "Tarnix %s Agent reopened logfile...", version_text);
    if (error != nullptr) agent_log(LOG_NORMAL, "Error rotating logfiles: %s", error);
}

void log_check_rotate() {
    const agent_config *config = config_in_force;
    int64_t now = time_now();
    if (log_created == 0) {
        log_created = file_creation_time(config->logfile);
        if (log_created == 0) {
            agent_log(LOG_ERROR, "Could not get log creation time, defaulting to now");
            log_created = now;
        }
    }
    if (rotates(config) && now - log_created > config->log_days * DAY) reopen_log_flag = 1;
    if (reopen_log_flag != 0 && !log_is_console()) rotate_and_reopen(config, now);
}

void log_rotation_reset() {
    log_created = 0;
    reopen_log_flag = 0;
}
