#include "devtree/fake_checks.h"

#include "devtree/check_table.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/fatal.h"
#include "platform/text.h"

#include <cmath>
#include <cstdio>
#include <cstring>

uint32_t regression_flag;
uint32_t fake_results_flag;
uint32_t fake_device_count = 1;
int64_t fake_start_time = -1;
int64_t fake_end_time = -1;
uint32_t fake_repeat_count = 1000;
uint32_t fake_idle_flag;

namespace {

constexpr double TURN = 6.28318530718;

struct wave_state {
    double phase;
    int64_t fake_time;
};

struct fake_state {
    uint32_t status;
};

} // namespace

static char *required(char *text) {
    if (text == nullptr) fatal("Out of memory");
    return text;
}

static devnode_guard fake_device(uint32_t number) {
    char text[96];
    devnode_guard device(alloc_devnode());
    auto place = static_cast<int>(number);
    snprintf(text, sizeof text, "fakephys%i", place);
    device->id = required(text_copy(text));
    snprintf(text, sizeof text, "Faked physical memory %i", place);
    device->name = required(text_copy(text));
    snprintf(text, sizeof text, "Faked Physical memory for regression test use. Number %i", place);
    device->comment = required(text_copy(text));
    device->unit = required(text_copy("kB"));
    device->type = TYPE_CONTINUOUS;
    device->description = 2;
    return device;
}

const char *scan_fake_memory(devtree *root) {
    devtree *group = devtree_child(root, "mem", "Free Memory");
    if (group == nullptr) return "Couldn't allocate devtree_child mem";
    for (uint32_t number = 1; number <= fake_device_count; number++)
        devtree_add_devices(group, fake_device(number).release());
    return nullptr;
}

// Places a new cleared state. Nobody goes on without it.
template <class T>
static T *place_state(devnode *device, uint32_t magic, void (*free_state)(devnode *)) {
    T *state = heap_new<T>();
    if (state == nullptr) fatal("Out of memory");
    device->state = state;
    device->state_magic = magic;
    device->state_free = free_state;
    return state;
}

static wave_state *find_wave(devnode *device) {
    if (device->state != nullptr) {
        if (device->state_magic != REGRESSION_MAGIC) fatal("Check state corrupt");
        return static_cast<wave_state *>(device->state);
    }
    auto *wave = place_state<wave_state>(device, REGRESSION_MAGIC, fake_free_state);
    wave->fake_time = fake_start_time;
    return wave;
}

int regression_wave(devnode *device, resnode *result) {
    // One full turn in an hour of made-up time, whatever the frequency.
    double step = TURN / (60.0 / device->frequency * 60.0);
    wave_state *wave = find_wave(device);
    if (fake_end_time != -1 && wave->fake_time >= fake_end_time) return -1;
    if (wave->fake_time == -1) wave->fake_time = time_now();
    result->value = static_cast<int32_t>((cos(wave->phase) + 1.0) * 10000.0);
    wave->phase += step;
    if (wave->phase >= TURN) wave->phase -= TURN;
    result->check_time = wave->fake_time;
    wave->fake_time += device->frequency;
    return 0;
}

static fake_state *find_fake_state(devnode *device) {
    if (device->state == nullptr) return place_state<fake_state>(device, FAKE_STATE_MAGIC, free_fake_state);
    if (device->state_magic != FAKE_STATE_MAGIC) fatal("Check state corrupt");
    return static_cast<fake_state *>(device->state);
}

// A warning or an alert lasts about a thousand checks.
static void draw_status(fake_state *state) {
    if (tn_rand() % 997 != 0) return;
    int32_t drawn = tn_rand() % 97;
    state->status = drawn == 0 ? STATUS_WARNING : drawn == 1 ? STATUS_ALERT : STATUS_GOOD;
}

static char *fake_log_text() {
    if (tn_rand() % 97 != 0) return text_copy("Fake result");
    auto size = static_cast<uint32_t>(tn_rand() % 63 + 1) * 1024;
    agent_log(LOG_WARNING, "Generated huge (%u bytes) log string", size);
    auto *text = static_cast<char *>(heap_alloc(size));
    if (text != nullptr) memset(text, 'a', size - 1);
    return text;
}

static void fake_uptime(devnode *device, resnode *result) {
    const check_entry *system = find_check_entry("system");
    if (system == nullptr || system->check == nullptr) return;
    // The check keeps a state of its own kind, which must not meet the made-up one.
    void *state = device->state;
    clear_state(device);
    system->check(device, result);
    device->state_free(device);
    device->state = state;
    device->state_magic = FAKE_STATE_MAGIC;
    device->state_free = free_fake_state;
}

static void fill_by_type(devnode *device, resnode *result) {
    switch (device->type) {
    case 0:
        result->value = 117;
        break;
    case 1:
    case 3:
    case 13:
    case 14:
        result->value = 1;
        break;
    case 4:
        fake_uptime(device, result);
        break;
    case 7:
        result->real_value = 117.0;
        break;
    case 9:
        result->log_text = fake_log_text();
        break;
    case 15:
        result->value = 5;
        break;
    default:
        break;
    }
}

resnode *fake_result(devnode *device, resnode *result) {
    fake_state *state = find_fake_state(device);
    draw_status(state);
    result->value = 0;
    result->real_value = 0.0;
    fill_by_type(device, result);
    text_replace(&result->comment, text_copy("Fake result"));
    result->status = state->status;
    return result;
}

void fake_free_state(devnode *device) {
    if (device->state_magic != REGRESSION_MAGIC) fatal("Magic mismatch in fake_free_state");
    heap_free(device->state);
}

void free_fake_state(devnode *device) {
    if (device->state_magic != FAKE_STATE_MAGIC) fatal("Magic mismatch in free_fake_state");
    heap_free(device->state);
}

void fake_checks_reset() {
    regression_flag = fake_results_flag = fake_idle_flag = 0;
    fake_device_count = 1;
    fake_start_time = fake_end_time = -1;
    fake_repeat_count = 1000;
}
