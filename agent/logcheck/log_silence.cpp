#include "logcheck/log_silence.h"

#include "devtree/naming.h"
#include "platform/clock.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "state/variables.h"

#include <cstdio>

static constexpr size_t KEY_SIZE = 256;

static void make_key(const char *what, const devnode *device, char out[KEY_SIZE]) {
    text_guard name(devnode_full_name(device));
    snprintf(out, KEY_SIZE, "%s:%s", what, name.get());
}

// The number in a variable, or `missing`.
static int64_t read_number(const char *what, const devnode *device, int64_t missing) {
    char key[KEY_SIZE];
    make_key(what, device, key);
    const variable *found = var_get(key);
    return found != nullptr ? parse_number(found->value) : missing;
}

static void write_number(const char *what, const devnode *device, int64_t value, const char *out_of_memory) {
    char key[KEY_SIZE];
    char text[16];
    make_key(what, device, key);
    snprintf(text, sizeof text, "%i", static_cast<int>(value));
    variable *entry = var_make(key, text);
    if (entry == nullptr) fatal(out_of_memory);
    static_cast<void>(var_set(entry));
}

void log_silence_read(const devnode *device, int64_t *out_timestamp, int32_t *out_status_sent) {
    *out_timestamp = read_number("timestamp", device, time_now());
    *out_status_sent = static_cast<int32_t>(read_number("status_sent", device, 0));
}

void log_silence_reset(const devnode *device, int64_t timestamp, int32_t status) {
    write_number("timestamp", device, timestamp, "Out of memory during alloc of silence var timestamp");
    write_number("status_sent", device, status, "Out of memory during alloc of silence var status_send");
}

static int32_t next_status(const lognode *limits, int64_t elapsed, int32_t sent) {
    bool alert_due = limits->alertSilence != -1 && limits->alertSilence <= elapsed;
    bool warning_due = limits->warningSilence != -1 && limits->warningSilence <= elapsed;
    if (sent == 0) return alert_due ? STATUS_ALERT : warning_due ? STATUS_WARNING : STATUS_GOOD;
    if (sent == 1) return alert_due ? STATUS_ALERT : STATUS_WARNING;
    return sent;
}

static void report_silence(devnode *device, int64_t now, int32_t status, int64_t elapsed) {
    char text[64];
    snprintf(text, sizeof text, "Log silent for %i hours and %i minutes", static_cast<int>(elapsed / 3600),
             static_cast<int>(elapsed % 3600 / 60));
    resnode_guard result(alloc_resnode());
    result->check_time = now;
    result->status = static_cast<uint32_t>(status);
    result->log_text = text_copy(text);
    append_result(device, result.release());
}

void log_silence_evaluate(devnode *device, int64_t now) {
    if (device->lognode == nullptr) return;
    int64_t timestamp = read_number("timestamp", device, now);
    auto sent = static_cast<int32_t>(read_number("status_sent", device, 0));
    int64_t elapsed = now - timestamp;
    int32_t status = next_status(device->lognode, elapsed, sent);
    log_silence_reset(device, timestamp, status);
    device->lognode->activity_stored = 0;
    if (status != sent) report_silence(device, now, status, elapsed);
}
