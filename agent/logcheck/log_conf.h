// The file in which the administrator says which logs the agent offers, one line a path or a set of event
// logs.
//
//   # a comment
//   C:\logs\**\*.log
//   eventlog:*
//
// A line becomes a chain of parts, one a level of the path. One bad line fails the whole file, and a file
// without any line that counts has failed too.
#pragma once

#include "platform/heap.h"

#include <cstddef>
#include <cstdint>

enum : uint32_t {
    PART_EVENT_LOG = 0,
    PART_DRIVE = 1, // or the root, where paths have one
    PART_NAME = 2,  // a name or a wildcard of one level
    PART_ANY_DEPTH = 3,
};

struct log_path_part {
    uint32_t kind;
    char *text;
    log_path_part *next;
};

struct log_conf_line {
    log_path_part *parts;
    log_conf_line *next;
};

// Characters of a line; what is longer goes on as a line of its own.
inline constexpr size_t LOG_CONF_LINE_LENGTH = 1023;
inline constexpr size_t LOG_CONF_FILE_LIMIT = size_t{1} << 20; // bytes; a longer file cannot be read

// A new list, the last line first; absent where the file has failed.
log_conf_line *log_conf_read(const char *path);
log_conf_line *log_conf_parse(const char *text, size_t length);
void log_conf_free(log_conf_line *list); // takes absent

// The list in force, which the last file that read well has left.
extern log_conf_line *log_conf_current;
void log_conf_reset(); // back to that of a new process, for tests

// Absent when memory is out, which is told; takes absent.
log_path_part *log_chain_copy(const log_path_part *chain);
void log_chain_free(log_path_part *chain); // takes absent
bool log_chain_equal(const log_path_part *a, const log_path_part *b);

// Traces the chain as its texts, joined by " -> ".
void log_chain_trace(const log_path_part *chain);

// A line of its own for the chain, which it takes over in any case. Absent when memory is out, which is told.
log_conf_line *new_log_conf_line(log_path_part *chain);

using log_chain_guard = guard<log_path_part, log_chain_free>;
using log_conf_guard = guard<log_conf_line, log_conf_free>;
