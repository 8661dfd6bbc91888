#include "probes/os/counter_provider.h"

#include "platform/heap.h"
#include "platform/text.h"
#include "probes/os/counter_objects.h"
#include "probes/os/counter_values.h"
#include "probes/os/perf_counter_ops.h"

#include <cstring>

struct pdh_query {
    pdh_counter *counters;
};

struct pdh_counter {
    pdh_query *query;
    pdh_counter *next;
    const counter_object *object;
    const counter_row *row;
    char *instance; // as it was asked for; absent for an object without
    char *name;     // the same without the number of equal ones
    char *source;
    char *listing; // the source that says whose the other one is; absent where that says it itself
    counter_history history;
};

namespace {

struct path_parts {
    char object[INSTANCE_NAME_SIZE];
    char instance[INSTANCE_NAME_SIZE];
    bool has_instance;
    const char *counter;
};

// What one collection has read, for all its counters.
struct reading {
    reading *next;
    char *path;
    char *text; // absent where it could not be read
    uint64_t ticks;
};

} // namespace

uint32_t provider_open_query(pdh_query **out) {
    if (out == nullptr) return PDH_INVALID_ARGUMENT;
    *out = heap_new<pdh_query>();
    return *out != nullptr ? PDH_OK : PDH_MEMORY_ALLOCATION_FAILURE;
}

// Cuts "\object(instance)\counter" or "\object\counter". An instance may hold brackets and backslashes
// itself: it ends with the last bracket that a backslash follows.
static uint32_t cut_path(const char *path, path_parts *out) {
    out->has_instance = false;
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

static void free_counter_record(pdh_counter *counter) {
    heap_free(counter->instance);
    heap_free(counter->name);
    heap_free(counter->source);
    heap_free(counter->listing);
    heap_free(counter);
}

using pdh_counter_guard = guard<pdh_counter, free_counter_record>;

static bool wants_total(const pdh_counter *counter) {
    return counter->row->read_total != nullptr && text_equal(counter->name, TOTAL_INSTANCE);
}

static bool read_sample(const pdh_counter *counter, const char *text, counter_sample *out) {
    sample_reader *read = wants_total(counter) ? counter->row->read_total : counter->row->read;
    return read(text, counter->name, out);
}

// Whether the instance has a source to itself.
static bool has_own_source(const pdh_counter *counter) {
    return strchr(counter->row->source, '*') != nullptr && !wants_total(counter);
}

static bool is_listed_elsewhere(const pdh_counter *counter) {
    return counter->object->find_origin != nullptr && has_own_source(counter) &&
           !text_equal(counter->row->source, counter->object->instance_source);
}

// Sets the source that tells whose the counter's own is. False where memory is out.
static bool set_listing(pdh_counter *counter, const char *key) {
    char path[SOURCE_PATH_SIZE];
    if (!is_listed_elsewhere(counter)) return true;
    if (!make_source_path(counter->object->instance_source, key, path, sizeof path)) return false;
    text_replace(&counter->listing, text_copy(path));
    return counter->listing != nullptr;
}

// Sets the name of the instance and the source that its key leads to. False where memory is out.
static bool set_place(pdh_counter *counter, const char *name, const char *key) {
    char path[SOURCE_PATH_SIZE];
    const char *source = counter->row->source;
    text_replace(&counter->name, text_copy(name));
    if (name != nullptr && counter->name == nullptr) return false;
    if (wants_total(counter))
        source = counter->row->total_source;
    else if (make_source_path(source, key, path, sizeof path))
        source = path;
    text_replace(&counter->source, text_copy(source));
    return counter->source != nullptr && set_listing(counter, key);
}

// A counter is only added where it would give a sample now, so that a scan offers nothing that no check could
// read. What is listed with a source of its own has one, unless the row says that it has to be tried.
static bool can_be_read(const pdh_counter *counter) {
    if (counter->row->is_there != nullptr && !wants_total(counter))
        return has_instance_source(counter->object, counter->row, counter->source, counter->name);
    if (strchr(counter->source, '*') != nullptr || has_own_source(counter)) return true;
    const char *text = kept_source(counter->object, counter->source);
    counter_sample sample = {};
    return text != nullptr && read_sample(counter, text, &sample);
}

// Finds out where the numbers of the instance stand. Afresh where the last place has gone.
static bool find_place(pdh_counter *counter, bool afresh) {
    if (counter->instance == nullptr) return set_place(counter, nullptr, "");
    const char *name = find_counter_instance(counter->object, counter->instance, afresh);
    return name != nullptr && set_place(counter, name, name + strlen(name) + 1);
}

static uint32_t make_counter(const path_parts &parts, pdh_counter **out) {
    const counter_object *object = find_counter_object(parts.object);
    if (object == nullptr || (object->list_instances != nullptr) != parts.has_instance)
        return PDH_CSTATUS_NO_COUNTER;
    const counter_row *row = find_counter_row(object, parts.counter);
    if (row == nullptr) return PDH_CSTATUS_NO_COUNTER;

    pdh_counter_guard counter(heap_new<pdh_counter>());
    if (counter == nullptr) return PDH_MEMORY_ALLOCATION_FAILURE;
    counter->object = object;
    counter->row = row;
    if (parts.has_instance) {
        counter->instance = text_copy(parts.instance);
        if (counter->instance == nullptr) return PDH_MEMORY_ALLOCATION_FAILURE;
    }
    if (!find_place(counter.get(), false) || !can_be_read(counter.get())) return PDH_CSTATUS_NO_COUNTER;
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

static void free_readings(reading *first) {
    while (first != nullptr) {
        reading *next = first->next;
        heap_free(first->path);
        heap_free(first->text);
        heap_free(first);
        first = next;
    }
}

// The source as this collection has it; absent where memory is out.
static const reading *read_once(reading **all, const char *path) {
    for (const reading *each = *all; each != nullptr; each = each->next)
        if (text_equal(each->path, path)) return each;
    text_guard name(text_copy(path));
    auto *added = name != nullptr ? heap_new<reading>() : nullptr;
    if (added == nullptr) return nullptr;
    *added = {.next = *all, .path = name.release(), .text = read_counter_source(path).release()};
    added->ticks = counter_sources_host->ticks();
    *all = added;
    return added;
}

// Completes a sample whose source does not say whose it is. A process may be another one by now; false where
// its name tells.
static bool set_origin(const pdh_counter *counter, reading **all, counter_sample *out) {
    if (counter->listing == nullptr) return true;
    const reading *found = read_once(all, counter->listing);
    return found != nullptr && found->text != nullptr &&
           counter->object->find_origin(found->text, counter->name, &out->origin);
}

// What cannot be read starts over: a rate over the gap would tell of a time that nobody measured.
static bool take_sample(pdh_counter *counter, reading **all, const char *text, uint64_t ticks) {
    counter_sample sample = {};
    bool taken = text != nullptr && read_sample(counter, text, &sample) && set_origin(counter, all, &sample);
    if (taken)
        add_sample(&counter->history, sample, ticks);
    else
        counter->history.samples = 0;
    return taken;
}

// Another process may have the name now; it starts with a sample of its own. What is listed without a source
// may be one of those that have none.
static bool collect_elsewhere(pdh_counter *counter, reading **all) {
    if (!find_place(counter, true)) return false;
    text_guard text = read_counter_source(counter->source);
    const char *found = text != nullptr ? text.get() : counter->row->may_lack_source ? "" : nullptr;
    return take_sample(counter, all, found, counter_sources_host->ticks());
}

// Whether the counter's number was found: what has gone for good must not be waited for as for a second
// sample, check after check.
static bool collect_counter(pdh_counter *counter, reading **all) {
    const reading *found = read_once(all, counter->source);
    const char *text = found != nullptr ? found->text : nullptr;
    bool taken = take_sample(counter, all, text, text != nullptr ? found->ticks : 0);
    if (!taken && has_own_source(counter)) taken = collect_elsewhere(counter, all);
    return taken;
}

uint32_t provider_collect(pdh_query *query) {
    if (query == nullptr) return PDH_INVALID_HANDLE;
    drop_old_sources();
    reading *all = nullptr;
    bool any = false;
    for (pdh_counter *counter = query->counters; counter != nullptr; counter = counter->next)
        any |= collect_counter(counter, &all);
    free_readings(all);
    return any ? PDH_OK : PDH_NO_DATA;
}

uint32_t provider_format_value(pdh_counter *counter, uint32_t format, double *out) {
    if (counter == nullptr) return PDH_INVALID_HANDLE;
    if (format != PDH_FMT_DOUBLE || out == nullptr) return PDH_INVALID_ARGUMENT;
    return make_counter_value(counter->row->type, counter->history, out) ? PDH_OK : PDH_INVALID_DATA;
}

uint32_t provider_counter_info(pdh_counter *counter, uint32_t *size, void *description) {
    if (counter == nullptr) return PDH_INVALID_HANDLE;
    if (size == nullptr) return PDH_INVALID_ARGUMENT;
    counter_description found = {.length = sizeof(counter_description), .type = counter->row->type};
    bool fits = description != nullptr && *size >= sizeof found;
    *size = sizeof found;
    if (!fits) return PDH_MORE_DATA;
    memcpy(description, &found, sizeof found);
    return PDH_OK;
}
