#include "probes/os/counter_objects.h"

#include "platform/text.h"

// Those with large texts come first: what was read for the last one that was listed is kept the longest.
static constexpr const counter_object *OBJECTS[] = {
    &system_object,
    &processor_object,
    &memory_object,
    &process_object,
    &logical_disk_object,
    &paging_file_object,
    &network_interface_object,
    &physical_disk_object,
    &objects_object,
    &ipv4_object,
    &tcpv4_object,
    &udpv4_object,
};

const std::span<const counter_object *const> counter_objects = OBJECTS;

const counter_object *find_counter_object(const char *name) {
    for (const counter_object *object : counter_objects)
        if (text_equal(object->name, name)) return object;
    return nullptr;
}

const counter_row *find_counter_row(const counter_object *object, const char *name) {
    for (const counter_row &row : object->counters)
        if (text_equal(row.name, name)) return &row;
    return nullptr;
}
