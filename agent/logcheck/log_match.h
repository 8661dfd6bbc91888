// What a scan for logs has found at one level: names, each once, with what the lines still ask for below
// them.
//
// A list with an index by name, since a folder may hold any number of entries.
#pragma once

#include "logcheck/log_conf.h"

enum : uint32_t { MATCH_FOLDER = 1, MATCH_FILE = 2, MATCH_EVENT_LOG = 3 };

struct log_match {
    uint32_t kind;
    uint32_t strict; // when set, a file must exist to be taken
    char *name;
    log_conf_line *lines;
    log_conf_line **lines_end; // where the next line is to be linked
    log_match *next;
};

struct log_match_list {
    log_match *first; // the newest
    uint32_t count;
    log_match **slots; // the index
    uint32_t slot_count;
};

// Adds a match at the front, with a copy of `rest`, which may be absent, as its one line. Where the name is
// there already, only the line is added to that match; its kind and strictness stay. Without memory that
// match is left out, which is told.
void add_log_match(log_match_list *list, uint32_t kind, uint32_t strict, const char *name,
                   const log_path_part *rest);

// Leaves the list empty.
void free_log_matches(log_match_list *list);

using log_matches_guard = guard<log_match_list, free_log_matches>;
