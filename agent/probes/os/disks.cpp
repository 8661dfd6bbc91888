#include "probes/os/disks.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/counter_items.h"
#include "probes/os/counter_names.h"
#include "probes/os/perf_counter.h"
#include "probes/os/rounding.h"

#include <cstdio>
#include <cstring>
#include <limits>

namespace {

constexpr const char *OBJECT = "PhysicalDisk";
constexpr const char *NO_MEMORY_FOR_GROUP = "Couldn't allocate devtree_child mem";
constexpr const char *PERCENT = "1%";
constexpr uint32_t DESCRIPTION_DISK = 21;

struct disk_metric {
    const char *id;
    const char *name;
    const char *unit;
    const char *counter;
};

constexpr disk_metric METRICS[] = {
    {"read_io", "Read operations", "/s", "Disk Reads/sec"},
    {"read_bytes", "Read bytes", "B/s", "Disk Read Bytes/sec"},
    {"read_queue_length", "Read queue length", "", "Avg. Disk Read Queue Length"},
    {"write_io", "Write operations", "/s", "Disk Writes/sec"},
    {"write_bytes", "Written bytes", "B/s", "Disk Write Bytes/sec"},
    {"write_queue_length", "Write queue length", "", "Avg. Disk Write Queue Length"},
    {"idle", "Idle time", PERCENT, "% Idle Time"},
    {"total_queue_length", "Total queue length", "", "Avg. Disk Queue Length"},
    {"pct_read", "Read activity", PERCENT, "% Disk Read Time"},
    {"pct_write", "Write activity", PERCENT, "% Disk Write Time"},
    {"sec_read", "Time per read operation", "s", "Avg. Disk sec/Read"},
    {"sec_write", "Time per write operation", "s", "Avg. Disk sec/Write"},
    {"split_io", "Split IO operations", "/s", "Split IO/Sec"},
};

// An instance "0 C: D:" as its number and the first word behind it.
struct disk_instance {
    int32_t number;
    char word[DISK_INSTANCE_SIZE];
};

} // namespace

static const char *format_no_sizes(const char *reason) {
    return format_error("Couldn't enumerate PhysicalDisk objects: %s", reason);
}

static constexpr counter_items_words WORDS = {
    .format_no_sizes = format_no_sizes,
    .no_memory_for_counters = "Out of memory for counters in scan_block_devices",
    .no_memory_for_instances = "Out of memory for instances in scan_block_devices",
};

static const char *skip_blanks(const char *text) {
    while (is_blank(*text))
        text++;
    return text;
}

// Gives what stands behind the number, absent where none stands at the start.
static const char *read_disk_number(const char *text, int32_t *out) {
    const char *start = skip_blanks(text);
    const char *digits = *start == '-' || *start == '+' ? start + 1 : start;
    size_t length = strspn(digits, "0123456789");
    if (length == 0) return nullptr;
    *out = parse_atoi(start);
    return digits + length;
}

// False for the sum of all disks, and for a disk without a drive letter, which is a number alone.
static bool read_disk_instance(const char *text, disk_instance *out) {
    const char *behind = read_disk_number(text, &out->number);
    if (behind == nullptr) return false;
    const char *word = skip_blanks(behind);
    size_t length = 0;
    while (word[length] != '\0' && !is_blank(word[length]) && length + 1 < sizeof out->word)
        length++;
    copy_bounded(out->word, word, length + 1);
    return length > 0;
}

static devnode *new_metrics() {
    constexpr double UNKNOWN = std::numeric_limits<double>::quiet_NaN();
    devnode *devices = nullptr;
    for (const disk_metric &metric : METRICS) {
        devnode *device = new_scan_device({.id = metric.id,
                                           .name = metric.name,
                                           .comment = "",
                                           .type = TYPE_REAL_CONTINUOUS,
                                           .unit = metric.unit,
                                           .description = DESCRIPTION_DISK});
        set_range_hint(device, 0, UNKNOWN, text_equal(metric.unit, PERCENT) ? 100.0 : UNKNOWN);
        put_in_front(&devices, device);
    }
    return devices;
}

static const char *offer_disk(devtree *tree, const char *instance, const disk_instance &disk) {
    agent_log(LOG_TRACE, "Found device %s of type %s", instance, "physical");
    devtree *block = devtree_child(tree, "block", "Block Devices");
    if (block == nullptr) return NO_MEMORY_FOR_GROUP;
    block->name_template = "%0r for %1r";
    devtree *physical = devtree_child(block, "physical", "Physical Devices");
    if (physical == nullptr) return NO_MEMORY_FOR_GROUP;
    char id[16];
    char name[DISK_INSTANCE_SIZE + 32];
    snprintf(id, sizeof id, "%d", disk.number);
    snprintf(name, sizeof name, "Physical Disk %d (%s)", disk.number, disk.word);
    return offer_devices(physical, id, name, nullptr, 0, new_metrics());
}

static const char *walk_disks(const char *instances, devtree *tree, const int32_t *number, char *instance) {
    for (const char *name = instances; *name != '\0'; name = next_name(name)) {
        disk_instance disk;
        if (!read_disk_instance(name, &disk)) continue;
        if (number != nullptr && disk.number == *number) {
            copy_bounded(instance, name, DISK_INSTANCE_SIZE);
            return nullptr;
        }
        if (tree == nullptr) continue;
        if (auto *failure = offer_disk(tree, name, disk)) return failure;
    }
    return nullptr;
}

const char *scan_block_devices(devtree *tree, const char *number, char *instance) {
    int32_t wanted = 0;
    if (number != nullptr && read_disk_number(number, &wanted) == nullptr) return nullptr;
    char object[COUNTER_NAME_SIZE] = "";
    translate_counter_name_to_national(object, sizeof object, OBJECT);
    counter_items items;
    if (auto *failure = read_counter_items(object, WORDS, &items)) return failure;
    const char *failure = walk_disks(items.instances, tree, number != nullptr ? &wanted : nullptr, instance);
    free_counter_items(&items);
    return failure;
}

const char *scan_block_devices(devtree *tree) {
    return scan_block_devices(tree, nullptr, nullptr);
}

static const disk_metric *find_metric(const char *id) {
    for (const disk_metric &metric : METRICS)
        if (text_equal(metric.id, id)) return &metric;
    return nullptr;
}

// A disk that has gone leaves the instance empty, under which the host has no counter.
static const char *open_counter(devnode *device, const char *counter) {
    char instance[DISK_INSTANCE_SIZE] = "";
    const char *number = device->parent->id;
    if (auto *failure = scan_block_devices(nullptr, number, instance)) return failure;
    set_counter_state(device, create_counter_english(OBJECT, instance, counter, true));
    if (device->state != nullptr) return nullptr;
    return format_error("Could not get performance counter \"%s\" for physical disk %s", counter, number);
}

const char *check_block(devnode *device, resnode *result) {
    const disk_metric *metric = find_metric(device->id);
    if (metric == nullptr) return nullptr;
    agent_log(LOG_TRACE, "About to get PhysicalDisk counter \"%s\" on device \"%s\"", metric->counter,
              device->parent->id);
    if (find_device_counter(device) == nullptr)
        if (auto *failure = open_counter(device, metric->counter)) return failure;
    double value = -1.0;
    if (auto *failure = get_device_value(&value, device))
        return format_error("Could not get counter value for check_block-device: %s", failure);
    result->real_value = value;
    result->value = nearest_integer(value);
    return nullptr;
}
