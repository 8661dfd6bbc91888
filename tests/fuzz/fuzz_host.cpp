#include "fuzz/fuzz_host.h"

#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/heap.h"

#include <cstdio>
#include <cstdlib>

namespace {

int64_t blocks;

void *counted_allocate(size_t size) {
    blocks++;
    return heap_ops_host.allocate(size);
}

void counted_release(void *block) {
    if (block != nullptr) blocks--;
    heap_ops_host.release(block);
}

int64_t standing_time() {
    return 1'000'000'000;
}

bool no_calendar(int64_t, tm *) {
    return false;
}

bool steady_bytes(void *buffer, size_t count) {
    for (size_t i = 0; i < count; i++)
        static_cast<uint8_t *>(buffer)[i] = static_cast<uint8_t>(i + 1);
    return true;
}

bool no_words(uint32_t, char *, uint32_t, uint32_t *out_error) {
    *out_error = 317;
    return false;
}

void *no_source(const char *) {
    return nullptr;
}

void throw_end(int) {
    throw fuzz_process_ended();
}

int64_t swallow(host_file, const void *, size_t size) {
    return static_cast<int64_t>(size);
}

const heap_ops counted_heap = {.allocate = counted_allocate, .release = counted_release};
const clock_ops standing_clock = {.time = standing_time, .localtime = no_calendar, .Sleep = [](uint32_t) {}};
const random_ops steady_random = {.random_bytes = steady_bytes};
const error_ops silent_errors = {.GetLastError = [] { return uint32_t{5}; }, .FormatMessageA = no_words};
const event_ops no_events = {.RegisterEventSourceA = no_source};
const process_ops endless_process = {.exit = throw_end, .GetCurrentProcessId = [] { return uint32_t{1}; }};
const files_ops swallowing_files = {.stderr_handle = 2, .write = swallow};

void install() {
    heap_host = &counted_heap;
    clock_host = &standing_clock;
    random_host = &steady_random;
    error_host = &silent_errors;
    event_host = &no_events;
    process_host = &endless_process;
    files_host = &swallowing_files;
    log_to_stderr();
    log_set_level(LOG_TRACE); // all lines are formatted
}

} // namespace

void fuzz_one(void (*run)(const uint8_t *data, size_t size), const uint8_t *data, size_t size) {
    install();
    blocks = 0;
    try {
        run(data, size);
    } catch (const fuzz_process_ended &) {
        return; // what was held then goes with the process
    }
    fuzz_require(blocks == 0, "every block is freed");
}

void fuzz_require(bool truth, const char *rule) {
    if (truth) return;
    fprintf(stderr, "broken: %s\n", rule);
    abort();
}

uint8_t fuzz_input::take_byte() {
    if (size == 0) return 0;
    size--;
    return *data++;
}

std::string fuzz_input::take_rest() {
    std::string rest(reinterpret_cast<const char *>(data), size);
    size = 0;
    return rest;
}
