// Where the provider's numbers come from: the texts of the kernel, and which instances of an object they tell
// of.
//
// A source is named by a path:
//   "/proc/stat"     a file
//   "/proc/"         a folder: the names in it, one a line
//   "/proc/*/stat"   the files of all folders whose names are numbers, one a line
//   "/proc/*/io"     other files of theirs, which have several lines, behind each other
//   "open:PATH"      the number of files that a process holds open, by its folder "/proc/PID/fd"; of several
//                    processes one a line
//   "space:PATH"     "free total", in bytes, of the drive at that path
//   "space:"         the paths of all drives, one a line
//
// Whoever browses opens each counter of each instance, one by one. For that the texts of the object at hand
// are kept, with a table of its instances, for a second or until another object is asked for. They only tell
// what is there: samples always come from a text read for them.
#pragma once

#include "platform/heap.h"
#include "probes/os/counter_objects.h"

#include <cstddef>
#include <cstdint>

// What the provider asks of a host.
struct counter_sources_ops {
    // Reads a file, or the names in a folder (its path ends in '/'), one a line. The bytes that came, `size`
    // where there may be more, -1 on failure; 0 for a file that is there, but has no value to tell.
    int64_t (*read_source)(const char *path, char *buffer, size_t size);
    // Nanoseconds of a clock that never goes back and stands while the host sleeps.
    uint64_t (*ticks)();
    // Nanoseconds since the host was started, those in which it slept included: the clock by which processes
    // are started.
    uint64_t (*uptime)();
    // Bytes of a page of memory; steps a second of the clock in which the times of processes are counted.
    uint32_t (*page_size)();
    uint32_t (*clock_rate)();
    // The files that a process holds open, by its folder "/proc/PID/fd"; -1 on failure.
    int64_t (*count_open_files)(const char *folder);
};

extern const counter_sources_ops counter_sources_ops_host;
extern const counter_sources_ops *counter_sources_host;

// The whole text of a source, absent where it cannot be read.
text_guard read_counter_source(const char *path);

// Longer than any mount point that is offered, and what stands around it.
inline constexpr size_t SOURCE_PATH_SIZE = 256;

// Writes the path with the key in the place of its '*'. False where that does not fit.
bool make_source_path(const char *source, const char *key, char *buffer, size_t size);

// A text of the object at hand, as it was within the last second; valid until the next call.
const char *kept_source(const counter_object *object, const char *path);

// What the row's is_there says of an instance, by a text from within the last second.
bool has_instance_source(const counter_object *object, const counter_row *row, const char *path,
                         const char *instance);

// The instances of an object, as name and key behind each other, with an empty name at the end; absent where
// they cannot be had. Afresh, or as they were within the last second.
const char *list_counter_instances(const counter_object *object, bool afresh);

// The instance of this name in that list, whose key stands behind it. Of several of one name the second is
// "name#1". Absent where there is none.
const char *find_counter_instance(const counter_object *object, const char *instance, bool afresh);

// Frees what has been kept for longer than it counts.
void drop_old_sources();

// Forgets all, for tests.
void counter_sources_reset();
