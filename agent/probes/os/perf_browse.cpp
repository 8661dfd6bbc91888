#include "probes/os/perf_browse.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/counter_items.h"
#include "probes/os/counter_names.h"
#include "probes/os/name_index.h"
#include "probes/os/perf_counter.h"
#include "probes/os/perf_counter_ops.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr const char *NO_MEMORY_FOR_GROUP = "Couldn't allocate devtree_child mem";
constexpr const char *TEMPLATE_WITHOUT_INSTANCES = "Performance counter \\%1l\\%2l";
constexpr const char *TEMPLATE_WITH_INSTANCES = "Performance counter \\%1l(%2l)\\%3l";
constexpr size_t PATH_SIZE = 2048;
constexpr size_t NUMBERED_NAME_SIZE = 128;
constexpr uint32_t DESCRIPTION_COUNTER = 19;

// The top four bits of a type word.
enum : uint32_t { TYPE_OF_RATE = 0x1, TYPE_OF_PART = 0x2, TYPE_OF_TIME = 0x3 };

// One object while it is walked; its group is made when the first of its counters could be opened.
struct browsed_object {
    devtree *family;
    const char *name; // national
    devtree *group;
};

} // namespace

static bool ends_folded(const char *name, const char *end) {
    size_t length = strlen(name);
    size_t wanted = strlen(end);
    return length >= wanted && text_equal_folded(name + length - wanted, end);
}

// "Bytes/sec" counts as well: only the first five characters are compared.
static bool has_bytes_word(const char *name) {
    constexpr size_t LENGTH = 5;
    for (const char *word = name; word != nullptr; word = strchr(word, ' ')) {
        if (*word == ' ') word++;
        char start[LENGTH + 1];
        copy_bounded(start, word, sizeof start);
        if (text_equal_folded(start, "bytes")) return true;
    }
    return false;
}

const char *counter_unit(const char *name, const uint32_t *type) {
    if (ends_folded(name, "(ms)")) return "ms";
    if (ends_folded(name, "(KB)")) return "kB";
    bool bytes = has_bytes_word(name);
    uint32_t kind = type != nullptr ? *type >> 28 : 0;
    if (kind == TYPE_OF_RATE) return bytes ? "B/s" : "/s";
    if (kind == TYPE_OF_PART) return "1%";
    if (kind == TYPE_OF_TIME) return "s";
    return bytes ? "B" : nullptr;
}

// The description's size is asked for first; what that call says does not matter, since the second one tells.
static bool read_type(pdh_counter *counter, uint32_t *out) {
    uint32_t size = 0;
    perf_counter_host->PdhGetCounterInfoA(counter, &size, nullptr);
    constexpr uint32_t LEAST = sizeof(counter_description);
    guard<void, heap_free> block(heap_alloc(size > LEAST ? size : LEAST));
    if (block == nullptr) return false;
    uint32_t status = perf_counter_host->PdhGetCounterInfoA(counter, &size, block.get());
    if (status != PDH_OK) {
        agent_log(LOG_NORMAL, "Error retrieving unit for PerfCnt: %s", error_text(status));
        return false;
    }
    *out = static_cast<const counter_description *>(block.get())->type;
    return true;
}

static devnode *new_counter(const char *national, pdh_counter *counter) {
    uint32_t type = 0;
    bool has_type = read_type(counter, &type);
    char name[NAME_LIMIT + 1];
    if (!translate_counter_name_to_english(name, COUNTER_NAME_SIZE, national)) {
        agent_log(LOG_NORMAL, "Creating counter with national name : %s", national);
        copy_bounded(name, national, sizeof name); // a longer one would keep the whole tree from the server
    }
    const char *unit = counter_unit(name, has_type ? &type : nullptr);
    agent_log(LOG_TRACE, "Counter :     %s, %s, type=0x%08x", name, unit != nullptr ? unit : "", type);
    return new_scan_device({.id = name,
                            .name = nullptr,
                            .comment = "",
                            .type = TYPE_REAL_CONTINUOUS,
                            .unit = unit,
                            .description = DESCRIPTION_COUNTER});
}

devnode *retrieve_counters(const char *counters, const char *object, const char *instance) {
    pdh_query *query = nullptr;
    if (perf_counter_host->PdhOpenQueryA(&query) != PDH_OK) {
        agent_log(LOG_WARNING, "Error creating query in retrieve_counters");
        return nullptr;
    }
    devnode *found = nullptr;
    for (const char *name = counters; *name != '\0'; name = next_name(name)) {
        char path[PATH_SIZE];
        format_counter_path(object, instance, name, path, sizeof path);
        pdh_counter *counter = nullptr;
        if (perf_counter_host->PdhAddCounterA(query, path, &counter) != PDH_OK) {
            agent_log(LOG_TRACE, "Counter :     %s, PdhAddCounter() failed", name);
            continue;
        }
        put_in_front(&found, new_counter(name, counter));
        perf_counter_host->PdhRemoveCounter(counter);
    }
    perf_counter_host->PdhCloseQuery(query);
    return found;
}

static const char *make_object_group(browsed_object *object, const char *name_template, uint32_t flags) {
    char english[COUNTER_NAME_SIZE];
    const char *name = english;
    if (!translate_counter_name_to_english(english, sizeof english, object->name)) {
        agent_log(LOG_NORMAL, "Creating object with national name : %s", object->name);
        name = object->name;
    }
    object->group = devtree_child(object->family, name, name);
    if (object->group == nullptr) return NO_MEMORY_FOR_GROUP;
    object->group->name_template = name_template;
    object->group->group_flags |= flags;
    return nullptr;
}

static const char *browse_without_instances(browsed_object *object, const char *counters) {
    devnode *found = retrieve_counters(counters, object->name, nullptr);
    if (found == nullptr) return nullptr;
    if (auto *failure = make_object_group(object, TEMPLATE_WITHOUT_INSTANCES, 0)) {
        free_devnode_list(found);
        return failure;
    }
    devtree_add_devices(object->group, found);
    return nullptr;
}

static const char *browse_instance(browsed_object *object, const char *counters, const char *instance) {
    agent_log(LOG_TRACE, "Instance:   %s", instance);
    devnode *found = retrieve_counters(counters, object->name, instance);
    if (found == nullptr) return nullptr;
    if (object->group == nullptr) {
        if (auto *failure = make_object_group(object, TEMPLATE_WITH_INSTANCES, GROUP_OF_INSTANCES)) {
            free_devnode_list(found);
            return failure;
        }
    }
    return offer_devices(object->group, instance, instance, nullptr, 0, found);
}

static const char *browse_instances(browsed_object *object, const char *counters, const char *instances) {
    name_index seen = {};
    const char *failure = nullptr;
    for (const char *name = instances; *name != '\0' && failure == nullptr; name = next_name(name)) {
        uint32_t before = 0;
        if (!index_name(&seen, name, &before)) {
            failure = "Out of memory for instances in scan_perfcnts";
            break;
        }
        char numbered[NUMBERED_NAME_SIZE];
        if (before == 0)
            copy_bounded(numbered, name, sizeof numbered);
        else
            snprintf(numbered, sizeof numbered, "%s#%d", name, static_cast<int>(before));
        failure = browse_instance(object, counters, numbered);
    }
    free_name_index(&seen);
    return failure;
}

static uint32_t size_of_list(uint32_t size, const char *message) {
    if (size != 0) return size;
    agent_log(LOG_TRACE, "%s", message);
    return 1;
}

// What the host says to the two calls is not looked at: a list that did not come is empty.
static const char *read_items(const char *object, counter_items *out) {
    uint32_t counter_size = 0;
    uint32_t instance_size = 0;
    uint32_t detail = counter_detail();
    perf_counter_host->PdhEnumObjectItemsA(object, nullptr, &counter_size, nullptr, &instance_size, detail);
    counter_size = size_of_list(counter_size, "counter_size is zero, setting to 1");
    instance_size = size_of_list(instance_size, "instance_size is zero, setting to 1");
    out->counters = alloc_name_list(counter_size);
    if (out->counters == nullptr) return "Out of memory for counters in scan_perfcnts";
    out->instances = alloc_name_list(instance_size);
    if (out->instances == nullptr) return "Out of memory for instances in scan_perfcnts";
    perf_counter_host->PdhEnumObjectItemsA(object, out->counters, &counter_size, out->instances,
                                           &instance_size, detail);
    return nullptr;
}

static const char *browse_items(devtree *root, const char *name, const counter_items &items) {
    if (*items.counters == '\0') return nullptr;
    browsed_object object = {.family = devtree_child(root, "perf", "Performance Counters"), .name = name};
    if (object.family == nullptr) return NO_MEMORY_FOR_GROUP;
    if (*items.instances == '\0') return browse_without_instances(&object, items.counters);
    return browse_instances(&object, items.counters, items.instances);
}

static const char *browse_object(devtree *root, const char *name) {
    agent_log(LOG_TRACE, "Object  : %s", name);
    counter_items items = {};
    const char *failure = read_items(name, &items);
    if (failure == nullptr) failure = browse_items(root, name, items);
    free_counter_items(&items);
    return failure;
}

static const char *read_objects(text_guard *out) {
    uint32_t size = 0;
    uint32_t detail = counter_detail();
    uint32_t status = perf_counter_host->PdhEnumObjectsA(nullptr, &size, detail, true);
    if (status != PDH_OK && status != PDH_MORE_DATA)
        return format_error("Error getting size for performance counter objects: %s", error_text(status));
    if (size == 0) return "No performance counter objects found (objsize == 0)";
    out->reset(alloc_name_list(size));
    if (*out == nullptr) return "Out of memory in scan_perfcnts";
    status = perf_counter_host->PdhEnumObjectsA(out->get(), &size, detail, false);
    if (status != PDH_OK)
        return format_error("Error retrieving the performace counter objects: %s", error_text(status));
    return nullptr;
}

const char *scan_perfcnts(devtree *root) {
    agent_log(LOG_TRACE, "In scan_perfcnts, detail level=%d", static_cast<int>(counter_detail()));
    text_guard objects;
    if (auto *failure = read_objects(&objects)) return failure;
    for (const char *name = objects.get(); *name != '\0'; name = next_name(name))
        if (auto *failure = browse_object(root, name)) return failure;
    return nullptr;
}
