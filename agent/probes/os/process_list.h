// The processes of Linux, by their folders in /proc.
//
// A snapshot is the list of their ids, 32 bits each, with 0 behind the last one unless it is full. Names are
// read on the walk, one process at a time: a check that finds its process early reads no further, and a
// process that has gone meanwhile is passed over.
#pragma once

#include "probes/os/process_names.h"
#include "probes/os/processes_ops.h"

// Files of a process's folder. Each gives a zero-terminated text, cut at the buffer's size, and how long it
// is; -1 for a failure.
struct process_files {
    int64_t (*read)(uint32_t id, const char *file, char *buffer, size_t size);
    int64_t (*read_link)(uint32_t id, const char *file, char *buffer, size_t size);
};

// What /proc/ID/stat says.
struct process_stat {
    char name[IMAGE_NAME_SIZE];
    const char *state; // in the text, with the fields that follow
    bool ended;        // nothing of it runs any more; its parent has not asked for its end yet
};

// False for a text that is cut off before the name's end. The name is what stands between the first "(" and
// the last ")", as it is: a process may call itself anything.
bool parse_process_stat(const char *text, process_stat *out);
// From the fields behind the state; 0 for one that is not there.
process_run parse_process_run(uint32_t id, const char *state);

// The kernel keeps 15 bytes of a program's name. Each of these puts the whole name in the place of such a
// beginning, where its source has one. False where it has none.
//
// The link to the program, whose last part is its name.
bool complete_from_program(const char *program, char name[IMAGE_NAME_SIZE]);
// The last part of one of the arguments, `size` bytes, zero-terminated each: a script's name stands behind
// that of its interpreter.
bool complete_from_arguments(const char *arguments, size_t size, char name[IMAGE_NAME_SIZE]);

// The name of a process. False where it has gone or ended.
//
// A name that the kernel has cut is completed once in the life of the process and then remembered. Where that
// cannot be done now, `*out_cut` is true and the name a beginning: the process was never met but in an
// uninterruptible sleep (D), which may be the one that never ends.
bool read_process_name(const process_files &files, uint32_t id, char *name, uint32_t size, bool *out_cut);

// processes_ops.next_process for such a snapshot.
bool next_listed_process(const process_files &files, process_walk *walk, char *name, uint32_t size);
