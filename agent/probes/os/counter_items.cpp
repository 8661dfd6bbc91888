#include "probes/os/counter_items.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/heap.h"
#include "probes/os/perf_counter_ops.h"
#include "settings/settings.h"

#include <cstring>

char *alloc_name_list(uint32_t size) {
    return static_cast<char *>(heap_alloc(size_t{size} + 2));
}

const char *next_name(const char *name) {
    return name + strlen(name) + 1;
}

uint32_t counter_detail() {
    return config_in_force->perf_cnt_level;
}

static uint32_t enumerate(const char *object, counter_items *items, uint32_t *counter_size,
                          uint32_t *instance_size) {
    return perf_counter_host->PdhEnumObjectItemsA(object, items->counters, counter_size, items->instances,
                                                  instance_size, counter_detail());
}

const char *read_counter_items(const char *object, const counter_items_words &words, counter_items *out) {
    *out = {};
    uint32_t counter_size = 0;
    uint32_t instance_size = 0;
    uint32_t status = enumerate(object, out, &counter_size, &instance_size);
    if (status != PDH_OK && status != PDH_MORE_DATA) {
        agent_log(LOG_TRACE, "PDH enumeration returned error %i", static_cast<int>(status));
        return words.format_no_sizes(error_text(status));
    }
    text_guard counters(alloc_name_list(counter_size));
    if (counters == nullptr) return words.no_memory_for_counters;
    text_guard instances(alloc_name_list(instance_size));
    if (instances == nullptr) return words.no_memory_for_instances;
    counter_items found = {.counters = counters.get(), .instances = instances.get()};
    status = enumerate(object, &found, &counter_size, &instance_size);
    if (status != PDH_OK) return format_error("Got an error from PdhEnumObjectItems: %s", error_text(status));
    *out = {.counters = counters.release(), .instances = instances.release()};
    return nullptr;
}

void free_counter_items(counter_items *items) {
    heap_free(items->counters);
    heap_free(items->instances);
    *items = {};
}
