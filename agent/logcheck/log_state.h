// How far a log has been read, kept with its check while the process lives and in variables over a restart.
//
// The file reader uses all fields; the event log reader keeps in `offset` the number of the next record and
// leaves the others as a new state has them.
#pragma once

#include "devtree/devtree.h"

#include <cstddef>
#include <cstdint>

inline constexpr size_t SAMPLE_SIZE = 100;
inline constexpr uint32_t LOG_STATE_MAGIC = 'G' | 'O' << 8 | 'L' << 16 | 'A' << 24;

struct log_state {
    int64_t offset;               // where the next read starts, -1 for a file that is too large
    int64_t size;                 // the position reached at the end of the last check, -1 for unknown
    char first_data[SAMPLE_SIZE]; // the file's first bytes as of the last check
    size_t first_data_len;
    char last_data[SAMPLE_SIZE]; // the bytes that end at `offset`
    size_t last_data_len;        // SAMPLE_SIZE, or 0 where `offset` is below it
};

// The state of a log's check, made where there is none; `*out_first` tells that it was. A state of another
// kind is fatal.
log_state *log_state_of(devnode *device, bool *out_first);

// The stored position, which an event log shares with a file; false when this log is new to the host.
bool read_log_offset(const devnode *device, int64_t *out_offset);

// Everything that is stored for a file. False, with `offset` as it was, when this log is new to the host.
bool read_log_state(const devnode *device, log_state *state);

// Out of memory is fatal.
void write_log_state(const devnode *device, const log_state *state);
