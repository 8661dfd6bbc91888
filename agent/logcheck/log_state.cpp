#include "logcheck/log_state.h"

#include "devtree/naming.h"
#include "logcheck/log_hex.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "state/variables.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t NUMBER_KEY_SIZE = 256;
constexpr size_t SAMPLE_KEY_SIZE = 1024;
constexpr size_t NUMBER_SIZE = 24;

} // namespace

static void log_free_state(devnode *device) {
    if (device->state_magic != LOG_STATE_MAGIC) fatal("Magic mismatch in log_free_state");
    heap_free(device->state);
    clear_state(device);
}

log_state *log_state_of(devnode *device, bool *out_first) {
    *out_first = device->state == nullptr;
    if (*out_first) {
        auto *state = heap_new<log_state>();
        if (state == nullptr) fatal("Out of memory");
        state->size = -1;
        device->state = state;
        device->state_free = log_free_state;
        device->state_magic = LOG_STATE_MAGIC;
    }
    if (device->state_magic != LOG_STATE_MAGIC) fatal("Check state corrupt");
    return static_cast<log_state *>(device->state);
}

static bool read_number(const char *key, int64_t *out) {
    const variable *found = var_get(key);
    if (found != nullptr) *out = parse_int64(found->value);
    return found != nullptr;
}

bool read_log_offset(const devnode *device, int64_t *out_offset) {
    text_guard full(devnode_full_name(device));
    if (read_number(full.get(), out_offset)) return true;
    text_guard plain(devnode_plain_name(device));
    return read_number(plain.get(), out_offset);
}

static size_t read_sample(const char *what, const char *name, char out[SAMPLE_SIZE]) {
    char key[SAMPLE_KEY_SIZE];
    snprintf(key, sizeof key, "%s:%s", what, name);
    const variable *found = var_get(key);
    return found != nullptr ? log_hex_decode(found->value, out, SAMPLE_SIZE) : 0;
}

bool read_log_state(const devnode *device, log_state *state) {
    text_guard name(devnode_full_name(device));
    char key[NUMBER_KEY_SIZE];
    snprintf(key, sizeof key, "size:%s", name.get());
    if (!read_number(key, &state->size)) state->size = -1;
    state->first_data_len = read_sample("first_bin", name.get(), state->first_data);
    state->last_data_len = read_sample("last_bin", name.get(), state->last_data);
    return read_log_offset(device, &state->offset);
}

static void store(const char *key, const char *value) {
    variable *entry = var_make(key, value);
    if (entry == nullptr) fatal("Out of memory during alloc of offset_var");
    static_cast<void>(var_set(entry));
}

static void store_number(const char *key, int64_t value) {
    char text[NUMBER_SIZE];
    snprintf(text, sizeof text, "%" PRId64, value);
    store(key, text);
}

static void store_sample(const char *what, const char *name, const char *bytes, size_t length) {
    char key[SAMPLE_KEY_SIZE];
    char value[2 * SAMPLE_SIZE + 1];
    snprintf(key, sizeof key, "%s:%s", what, name);
    log_hex_encode(bytes, length, value);
    store(key, value);
}

void write_log_state(const devnode *device, const log_state *state) {
    text_guard name(devnode_full_name(device));
    store_number(name.get(), state->offset);
    char key[NUMBER_KEY_SIZE];
    snprintf(key, sizeof key, "size:%s", name.get());
    if (state->size < 0)
        var_delete(key);
    else
        store_number(key, state->size);
    store_sample("first_bin", name.get(), state->first_data, state->first_data_len);
    store_sample("last_bin", name.get(), state->last_data, state->last_data_len);
}
