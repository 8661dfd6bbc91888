#include "probes/os/counter_provider.h"

#include "platform/heap.h"
#include "platform/text.h"
#include "probes/os/counter_objects.h"
#include "probes/os/perf_counter_ops.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

const counter_sources_ops *counter_sources_host;

struct pdh_query {
    pdh_counter *counters;
};

struct timed_sample {
    counter_sample reading;
    uint64_t ticks;
};

struct pdh_counter {
    pdh_query *query;
    pdh_counter *next;
    const counter_row *row;
    char *instance;   // absent for an object without
    uint32_t samples; // 0 to 2, the newest in `current`
    timed_sample current;
    timed_sample previous;
    bool collected; // by the collection under way
};

namespace {

constexpr size_t TEXT_LIMIT = size_t{16} << 20;
constexpr double NANOSECONDS = 1e9;
constexpr uint32_t ERROR_FILE_NOT_FOUND = 2;

constexpr size_t FIRST_SIZE = 4096;

// What the largest source so far needed: a buffer that was too small once would be so again.
size_t expected_size = FIRST_SIZE;

struct path_parts {
    char object[INSTANCE_NAME_SIZE];
    char instance[INSTANCE_NAME_SIZE];
    bool has_instance;
    const char *counter;
};

} // namespace

static text_guard read_source(const char *path) {
    for (size_t size = expected_size; size <= TEXT_LIMIT; size *= 4) {
        text_guard text(static_cast<char *>(heap_alloc(size + 1)));
        if (text == nullptr) return text;
        int64_t length = counter_sources_host->read_source(path, text.get(), size);
        if (length < 0) return {};
        if (static_cast<size_t>(length) == size) continue;
        expected_size = size;
        return text;
    }
    return {};
}

static bool wants_total(const pdh_counter *counter) {
    return counter->row->read_total != nullptr && text_equal(counter->instance, TOTAL_INSTANCE);
}

static const char *source_of(const pdh_counter *counter) {
    return wants_total(counter) ? counter->row->total_source : counter->row->source;
}

static bool read_sample(const pdh_counter *counter, const char *text, counter_sample *out) {
    sample_reader *read = wants_total(counter) ? counter->row->read_total : counter->row->read;
    return read(text, counter->instance, out);
}

uint32_t provider_open_query(pdh_query **out) {
    if (out == nullptr) return PDH_INVALID_ARGUMENT;
    *out = heap_new<pdh_query>();
    return *out != nullptr ? PDH_OK : PDH_MEMORY_ALLOCATION_FAILURE;
}

// Cuts "\object(instance)\counter" or "\object\counter". An instance may hold brackets and backslashes
// itself: it ends with the last bracket that a backslash follows.
static uint32_t cut_path(const char *path, path_parts *out) {
    *out = {};
    if (path[0] != '\\') return PDH_CSTATUS_BAD_COUNTERNAME;
    if (path[1] == '\\') return PDH_CSTATUS_NO_MACHINE;
    const char *object = path + 1;
    size_t length = strcspn(object, "(\\");
    if (length == 0 || length >= sizeof out->object || object[length] == '\0')
        return PDH_CSTATUS_BAD_COUNTERNAME;
    copy_bounded(out->object, object, length + 1);
    const char *behind = object + length;
    if (*behind == '(') {
        const char *instance = behind + 1;
        behind = nullptr;
        for (const char *at = instance; (at = strstr(at, ")\\")) != nullptr; at++)
            behind = at;
        if (behind == nullptr || behind - instance >= static_cast<ptrdiff_t>(sizeof out->instance))
            return PDH_CSTATUS_BAD_COUNTERNAME;
        copy_bounded(out->instance, instance, static_cast<size_t>(behind - instance) + 1);
        out->has_instance = true;
        behind++;
    }
    out->counter = behind + 1;
    return *out->counter != '\0' ? PDH_OK : PDH_CSTATUS_NO_COUNTERNAME;
}

struct instance_search {
    const char *wanted;
    bool found;
};

static bool compare_instance(void *context, const char *instance) {
    auto *search = static_cast<instance_search *>(context);
    search->found = text_equal(instance, search->wanted);
    return !search->found;
}

static bool has_instance(const counter_object *object, const char *instance) {
    text_guard text = read_source(object->instance_source);
    if (text == nullptr) return false;
    instance_search search = {.wanted = instance};
    object->list_instances(text.get(), compare_instance, &search);
    return search.found;
}

static void free_counter_record(pdh_counter *counter) {
    heap_free(counter->instance);
    heap_free(counter);
}

// A counter is only added where it gives a sample now, so that a scan offers nothing that no check could
// read.
static bool can_be_read(const pdh_counter *counter) {
    text_guard text = read_source(source_of(counter));
    counter_sample sample = {};
    return text != nullptr && read_sample(counter, text.get(), &sample);
}

static uint32_t make_counter(const path_parts &parts, pdh_counter **out) {
    const counter_object *object = find_counter_object(parts.object);
    if (object == nullptr || (object->list_instances != nullptr) != parts.has_instance)
        return PDH_CSTATUS_NO_COUNTER;
    const counter_row *row = find_counter_row(object, parts.counter);
    if (row == nullptr) return PDH_CSTATUS_NO_COUNTER;
    if (parts.has_instance && !has_instance(object, parts.instance)) return PDH_CSTATUS_NO_COUNTER;

    guard<pdh_counter, free_counter_record> counter(heap_new<pdh_counter>());
    if (counter == nullptr) return PDH_MEMORY_ALLOCATION_FAILURE;
    counter->row = row;
    if (parts.has_instance) {
        counter->instance = text_copy(parts.instance);
        if (counter->instance == nullptr) return PDH_MEMORY_ALLOCATION_FAILURE;
    }
    if (!can_be_read(counter.get())) return PDH_CSTATUS_NO_COUNTER;
    *out = counter.release();
    return PDH_OK;
}

uint32_t provider_add_counter(pdh_query *query, const char *path, pdh_counter **out) {
    if (path == nullptr || out == nullptr) return PDH_INVALID_ARGUMENT;
    if (query == nullptr) return PDH_INVALID_HANDLE;
    path_parts parts;
    if (uint32_t status = cut_path(path, &parts); status != PDH_OK) return status;
    if (uint32_t status = make_counter(parts, out); status != PDH_OK) return status;
    (*out)->query = query;
    (*out)->next = query->counters;
    query->counters = *out;
    return PDH_OK;
}

uint32_t provider_remove_counter(pdh_counter *counter) {
    if (counter == nullptr) return PDH_INVALID_HANDLE;
    pdh_counter **link = &counter->query->counters;
    while (*link != counter)
        link = &(*link)->next;
    *link = counter->next;
    free_counter_record(counter);
    return PDH_OK;
}

uint32_t provider_close_query(pdh_query *query) {
    if (query == nullptr) return PDH_INVALID_HANDLE;
    while (query->counters != nullptr)
        provider_remove_counter(query->counters);
    heap_free(query);
    return PDH_OK;
}

// What cannot be read starts over: a rate over the gap would tell of a time that nobody measured.
static void take_sample(pdh_counter *counter, const char *text, uint64_t ticks) {
    counter_sample reading = {};
    counter->collected = true;
    if (text == nullptr || !read_sample(counter, text, &reading)) {
        counter->samples = 0;
        return;
    }
    counter->previous = counter->current;
    counter->current = {.reading = reading, .ticks = ticks};
    counter->samples = std::min(counter->samples + 1, 2U);
}

// Reads the source of `first` once, for all counters from there on that have the same.
static bool collect_source(pdh_counter *first) {
    const char *source = source_of(first);
    text_guard text = read_source(source);
    uint64_t ticks = counter_sources_host->ticks();
    for (pdh_counter *counter = first; counter != nullptr; counter = counter->next)
        if (!counter->collected && text_equal(source_of(counter), source))
            take_sample(counter, text.get(), ticks);
    return text != nullptr;
}

uint32_t provider_collect(pdh_query *query) {
    if (query == nullptr) return PDH_INVALID_HANDLE;
    for (pdh_counter *counter = query->counters; counter != nullptr; counter = counter->next)
        counter->collected = false;
    bool any = false;
    for (pdh_counter *counter = query->counters; counter != nullptr; counter = counter->next)
        if (!counter->collected) any |= collect_source(counter);
    return any ? PDH_OK : PDH_NO_DATA;
}

// How far a counter has come. Subtracting first and looking at the sign then is right for one that wrapped,
// too.
static double steps(uint64_t from, uint64_t to) {
    return static_cast<double>(static_cast<int64_t>(to - from));
}

static bool format_rate(const pdh_counter *counter, double *out) {
    double time = steps(counter->previous.ticks, counter->current.ticks);
    double moved = steps(counter->previous.reading.value, counter->current.reading.value);
    if (counter->samples < 2 || time <= 0 || moved < 0) return false;
    *out = moved * NANOSECONDS / time;
    return true;
}

static bool format_percent(const pdh_counter *counter, double *out) {
    double whole = steps(counter->previous.reading.base, counter->current.reading.base);
    double share = steps(counter->previous.reading.value, counter->current.reading.value);
    if (counter->samples < 2 || whole <= 0) return false;
    *out = std::clamp(share * 100.0 / whole, 0.0, 100.0);
    return true;
}

static bool format_level(const pdh_counter *counter, double *out) {
    const counter_sample &reading = counter->current.reading;
    if (counter->samples < 1 || reading.base == 0) return false;
    *out = static_cast<double>(reading.value) / static_cast<double>(reading.base);
    return true;
}

static bool format_by_type(const pdh_counter *counter, double *out) {
    switch (counter->row->type) {
    case COUNTER_RATE:
        return format_rate(counter, out);
    case COUNTER_PERCENT:
        return format_percent(counter, out);
    case COUNTER_LEVEL:
    case COUNTER_SECONDS:
        return format_level(counter, out);
    }
    return false;
}

uint32_t provider_format_value(pdh_counter *counter, uint32_t format, double *out) {
    if (counter == nullptr) return PDH_INVALID_HANDLE;
    if (format != PDH_FMT_DOUBLE || out == nullptr) return PDH_INVALID_ARGUMENT;
    return format_by_type(counter, out) ? PDH_OK : PDH_INVALID_DATA;
}

// Objects and counters are numbered as they stand in their table, by even numbers from 2 on.
static const char *numbered_name(uint32_t number) {
    for (const counter_object &object : counter_objects) {
        if (number == 0) return object.name;
        number--;
        if (number < object.counters.size()) return object.counters[number].name;
        number -= static_cast<uint32_t>(object.counters.size());
    }
    return nullptr;
}

uint32_t provider_name_by_index(uint32_t index, char *name, uint32_t *size) {
    const char *found = index >= 2 && index % 2 == 0 ? numbered_name(index / 2 - 1) : nullptr;
    if (found == nullptr) return PDH_INVALID_ARGUMENT;
    auto needed = static_cast<uint32_t>(strlen(found)) + 1;
    bool fits = needed <= *size;
    copy_bounded(name, found, *size);
    *size = needed;
    return fits ? PDH_OK : PDH_MORE_DATA;
}

uint32_t provider_index_by_name(const char *name, uint32_t *out_index) {
    const char *found = nullptr;
    for (uint32_t number = 0; (found = numbered_name(number)) != nullptr; number++) {
        if (!text_equal(found, name)) continue;
        *out_index = 2 * (number + 1);
        return PDH_OK;
    }
    return PDH_STRING_NOT_FOUND;
}

// Prints one pair behind what is there, as far as the buffer goes, and gives its length in any case.
static uint32_t print_pair(char *buffer, uint32_t size, uint32_t position, uint32_t number,
                           const char *name) {
    char index[16];
    auto digits = static_cast<uint32_t>(snprintf(index, sizeof index, "%u", 2 * (number + 1)));
    auto length = static_cast<uint32_t>(strlen(name));
    if (position + digits + length + 2 <= size) {
        memcpy(buffer + position, index, digits + 1);
        memcpy(buffer + position + digits + 1, name, length + 1);
    }
    return digits + length + 2;
}

uint32_t provider_query_value(const char *name, char *buffer, uint32_t *size) {
    if (!text_equal(name, "Counter 009")) return ERROR_FILE_NOT_FOUND;
    uint32_t needed = 0;
    const char *entry = nullptr;
    for (uint32_t number = 0; (entry = numbered_name(number)) != nullptr; number++)
        needed += print_pair(buffer, *size, needed, number, entry);
    bool fits = needed + 1 <= *size;
    if (fits) buffer[needed] = '\0';
    *size = needed + 1;
    return fits ? PDH_OK : ERROR_MORE_DATA;
}

void provider_reset() {
    expected_size = FIRST_SIZE;
}
