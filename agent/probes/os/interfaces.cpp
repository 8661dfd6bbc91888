#include "probes/os/interfaces.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/counter_items.h"
#include "probes/os/counter_names.h"
#include "probes/os/perf_counter.h"
#include "probes/os/rounding.h"

#include <cstring>
#include <limits>

namespace {

constexpr const char *OBJECT = "Network Interface";
constexpr const char *NO_MEMORY_FOR_GROUP = "Couldn't allocate devtree_child mem";
constexpr double KILOBYTES_OF_BITS = 0.0001220703125; // 1 / 8192
constexpr double KILOBYTES_OF_BYTES = 0.0009765625;
constexpr uint32_t DESCRIPTION_PACKETS = 16;
constexpr uint32_t DESCRIPTION_BYTES = 17;

// The groups of one interface, and what is found for them.
struct interface_groups {
    devtree *throughput;
    devtree *events;
};

} // namespace

static const char *format_no_sizes(const char *reason) {
    return format_error("Couldn't enumerate Network Interface objects: %s", reason);
}

static constexpr counter_items_words WORDS = {
    .format_no_sizes = format_no_sizes,
    .no_memory_for_counters = "Out of memory for counters in scan_ifthrough",
    .no_memory_for_instances = "Out of memoty for instances in scan_ifthrough",
};

// The group of one interface in a family's group, which is made with the first of them.
static devtree *find_group(devtree *root, const char *id, const char *name, const char *interface) {
    devtree *family = devtree_child(root, id, name);
    if (family == nullptr) return nullptr;
    family->group_flags |= GROUP_OF_INSTANCES;
    family->name_template = "%0r for %1r";
    return devtree_child(family, interface, interface);
}

// In kB/s; below 0 where it could not be read.
static double read_bandwidth(const char *interface) {
    perf_counter_guard counter(create_counter_english(OBJECT, interface, "Current Bandwidth", true));
    if (counter == nullptr) return -1.0;
    double value = 0;
    if (auto *failure = get_counter_value(&value, counter.get())) {
        agent_log(LOG_ERROR, "Error getting BandwidthCounter: %s", failure);
        return -1.0;
    }
    return value * KILOBYTES_OF_BITS;
}

static devnode *new_throughput(const char *name, double bandwidth) {
    devnode *device = new_scan_device({.id = name,
                                       .name = name,
                                       .comment = "",
                                       .type = TYPE_REAL_CONTINUOUS,
                                       .unit = "kB/s",
                                       .description = DESCRIPTION_BYTES});
    double both_ways = strstr(name, "Total") != nullptr ? 2 : 1;
    if (bandwidth > 0)
        set_range_hint(device, 0, std::numeric_limits<double>::quiet_NaN(), bandwidth * both_ways);
    return device;
}

static devnode *new_packets(const char *name) {
    return new_scan_device({.id = name,
                            .name = name,
                            .comment = "Packet Throughput",
                            .type = TYPE_REAL_CONTINUOUS,
                            .unit = "/s",
                            .description = DESCRIPTION_PACKETS});
}

// The national names are turned into English ones even where nothing is offered, which tells of those that
// have none.
static void offer_counters(const char *counters, double bandwidth, const interface_groups &groups) {
    devnode *throughput = nullptr;
    devnode *events = nullptr;
    for (const char *counter = counters; *counter != '\0'; counter = next_name(counter)) {
        char english[COUNTER_NAME_SIZE];
        translate_counter_name_to_english(english, sizeof english, counter);
        if (bandwidth < 0) continue;
        if (text_starts_with(english, "Bytes")) put_in_front(&throughput, new_throughput(english, bandwidth));
        if (text_starts_with(english, "Packets")) put_in_front(&events, new_packets(english));
    }
    devtree_add_devices(groups.throughput, throughput);
    devtree_add_devices(groups.events, events);
}

// A name that is longer than the wire takes would keep the whole tree back, and cut it would find no counter.
static const char *scan_interface(devtree *root, const char *interface, const char *counters) {
    if (strlen(interface) > NAME_LIMIT) {
        agent_log(LOG_WARNING, "Interface name too long: %s", interface);
        return nullptr;
    }
    interface_groups groups = {
        .throughput = find_group(root, "ifthrough", "Interface throughput", interface),
        .events = find_group(root, "ifevents", "Interface events", interface),
    };
    if (groups.throughput == nullptr || groups.events == nullptr) return NO_MEMORY_FOR_GROUP;
    offer_counters(counters, read_bandwidth(interface), groups);
    return nullptr;
}

const char *scan_ifthroughput(devtree *root) {
    char object[COUNTER_NAME_SIZE] = "";
    translate_counter_name_to_national(object, sizeof object, OBJECT);
    agent_log(LOG_TRACE, "In scan_ifthroughput");
    counter_items items;
    const char *failure = read_counter_items(object, WORDS, &items);
    if (failure != nullptr) return failure;
    for (const char *name = items.instances; *name != '\0' && failure == nullptr; name = next_name(name))
        failure = scan_interface(root, name, items.counters);
    free_counter_items(&items);
    return failure;
}

const char *check_ifthrough(devnode *device, resnode *result) {
    const char *interface = device->parent->id;
    agent_log(LOG_TRACE, "About to get IF counter \"%s\" on interface \"%s\"", device->id, interface);
    if (find_device_counter(device) == nullptr) {
        set_counter_state(device, create_counter_english(OBJECT, interface, device->id, true));
        if (device->state == nullptr)
            return format_error("Cannot locate counter \"%s\" in check_ifthrough", device->id);
    }
    double value = -1.0;
    if (auto *failure = get_device_value(&value, device))
        return format_error("Could not get counter value for check_ifthrough: %s", failure);
    if (strstr(device->id, "Bytes") != nullptr) value *= KILOBYTES_OF_BYTES;
    result->real_value = value;
    result->value = nearest_integer(value);
    return nullptr;
}
