// The performance objects that the counter provider answers for: one row an object, one row a counter, with
// what it is worked out from.
//
// A new object is a row here and, where the kernel prints it in a text that nobody reads yet, a parser. What
// a counter is called is fixed, since servers store the names; what it is made of is the kernel's closest
// value, told beside its row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// How two samples make a value; the numbers are the type words by which counters are browsed.
enum counter_type : uint32_t {
    COUNTER_LEVEL = 0x00010100,   // value / base, of one sample
    COUNTER_RATE = 0x10410500,    // steps of the value a second
    COUNTER_PERCENT = 0x20510500, // steps of the value in a hundred of the base
    COUNTER_SECONDS = 0x30240500, // as a level
};

// One reading. The base is a divisor for levels and seconds, the whole for percentages, unused for rates.
struct counter_sample {
    uint64_t value;
    uint64_t base;
};

// Takes the sample of one instance (absent for an object without) out of a source's text. False where it is
// not there.
using sample_reader = bool(const char *text, const char *instance, counter_sample *out);

// Hands each instance to `visit`, until that returns false.
using instance_visitor = bool(void *context, const char *instance);
using instance_lister = void(const char *text, instance_visitor *visit, void *context);

struct counter_row {
    const char *name;
    counter_type type;
    const char *source; // a file, or a folder with '/' at its end, whose names are then its lines
    sample_reader *read;
    // For the sum over all instances, where another source has it. Otherwise absent.
    const char *total_source;
    sample_reader *read_total;
};

struct counter_object {
    const char *name;
    std::span<const counter_row> counters;
    // Absent for an object without instances.
    const char *instance_source;
    instance_lister *list_instances;
};

extern const std::span<const counter_object> counter_objects;

const counter_object *find_counter_object(const char *name);
const counter_row *find_counter_row(const counter_object *object, const char *name);

inline constexpr const char *TOTAL_INSTANCE = "_Total";
inline constexpr size_t INSTANCE_NAME_SIZE = 128;
