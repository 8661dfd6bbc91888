// The performance objects that the counter provider answers for: one record an object, one row a counter,
// with what it is worked out from.
//
// A new object is a record here and, where the kernel prints it in a text that nobody reads yet, a parser.
// What a counter is called is fixed, since servers store the names; what it is made of is the kernel's
// closest value, told beside its row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// How samples make a value. The numbers are the type words by which counters are browsed.
enum counter_type : uint32_t {
    COUNTER_LEVEL = 0x00010100,        // value / base, of one sample
    COUNTER_QUEUE = 0x00550500,        // milliseconds of the value in a millisecond of time, for each of base
    COUNTER_RATE = 0x10410500,         // steps of the value a second
    COUNTER_PART = 0x20020400,         // the value in a hundred of the base, of one sample
    COUNTER_PERCENT = 0x20510500,      // steps of the value in a hundred of the base
    COUNTER_TIME_SHARE = 0x20570500,   // as a queue, in percent
    COUNTER_IDLE_SHARE = 0x21570500,   // what the same leaves of a hundred
    COUNTER_SECONDS = 0x30240500,      // as a level
    COUNTER_AVERAGE_TIME = 0x30020400, // milliseconds of the value for a step of the base, in seconds
    COUNTER_AVERAGE = 0x40030500,      // steps of the value for a step of the base
};

// One reading. Unused parts of a rate are 0.
struct counter_sample {
    uint64_t value;
    uint64_t base;
    // What was counted, where another one may take its place: a difference is only made of two of the same.
    uint64_t origin;
};

// Takes the sample of one instance (absent for an object without) out of a source's text. False where it is
// not there.
using sample_reader = bool(const char *text, const char *instance, counter_sample *out);

// Hands each instance to `visit`, until that returns false. The key is what stands for the instance in the
// path of a source; absent where that is its name.
using instance_visitor = bool(void *context, const char *instance, const char *key);
using instance_lister = void(const char *text, instance_visitor *visit, void *context);

// A source is one of the paths of counter_sources.h. A '*' in one stands for the key of the instance: where
// it is listed, it has such a source.
struct counter_row {
    const char *name;
    counter_type type;
    uint32_t detail;
    const char *source;
    sample_reader *read;
    // For the sum over all instances, where it is made in another way.
    const char *total_source;
    sample_reader *read_total;
    // Whether an instance has the counter at all, where a sample would cost too much to find out, or where
    // its source may be closed to the agent. Rows in succession that have this in common are asked once.
    bool (*is_there)(const char *text, const char *instance);
    // Whether an instance may be there without its source, which then counts as empty.
    bool may_lack_source;
};

struct counter_object {
    const char *name;
    std::span<const counter_row> counters;
    // Absent for an object without instances.
    const char *instance_source;
    instance_lister *list_instances;
    // The origin of an instance's samples by the text in which it is listed, for those sources that do not
    // say whose they are; false where that text no longer tells of it. Absent where there are none.
    bool (*find_origin)(const char *text, const char *instance, uint64_t *out);
};

// In the order in which they are listed and numbered.
extern const std::span<const counter_object *const> counter_objects;

extern const counter_object system_object, processor_object, memory_object, paging_file_object,
    objects_object;
extern const counter_object physical_disk_object, logical_disk_object;
extern const counter_object network_interface_object, ipv4_object, tcpv4_object, udpv4_object;
extern const counter_object process_object;

const counter_object *find_counter_object(const char *name);
const counter_row *find_counter_row(const counter_object *object, const char *name);

inline constexpr const char *TOTAL_INSTANCE = "_Total";
inline constexpr size_t INSTANCE_NAME_SIZE = 512;
