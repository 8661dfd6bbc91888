// The two files in which the administrator describes programs of his own: custom checks and AgentActions.
//
//   # a comment
//   [checkname]
//   command=/usr/local/bin/count --all
//   type=integer
//
// A file is a sequence of sections. A reader compares keys exactly and ignores those that it does not know.
// New records go to the front, so that a list runs against its file's order.
#pragma once

#include "platform/heap.h"
#include "platform/regex.h"

#include <cstddef>
#include <cstdint>

enum : uint32_t {
    CUSTOM_Boolean = 0,
    CUSTOM_Integer = 1,
    CUSTOM_Real = 2,
    CUSTOM_DiffInteger = 3,
    CUSTOM_DiffReal = 4,
};

struct custom_check {
    char *name; // also the device's id
    char *command;
    uint32_t type;
    int32_t timeout;               // seconds
    uint32_t no_value_exitcode;    // 0 for none
    uint32_t no_value_if_no_match; // not 0: output without a match is no error
    char *unit;                    // may be absent
    tn_regex result_regex;         // cleared where there is none
    int64_t last_time;             // of the previous reading of a difference type, 0 for none
    uint64_t last_integer;
    double last_real;
    custom_check *next;
};

struct agent_action {
    char *name; // also the device's id
    char *command;
    agent_action *next;
};

// Characters of a line; what is longer goes on as a line of its own.
inline constexpr size_t CONF_LINE_LENGTH = 1023;
inline constexpr size_t CONF_FILE_LIMIT = size_t{1} << 20; // bytes; a longer file cannot be opened

// What is left to be read of a file's text.
struct conf_stream {
    const char *at;
    const char *end;
};

// Reads the first significant line: neither empty nor a comment, its trailing blanks cut. `size` is that of
// the buffer.
[[nodiscard]] const char *conf_read_line(conf_stream *stream, char *buffer, size_t size);

// Reads a file into `*list`, in front of what is there. What was read ahead of a failure stays in the list.
[[nodiscard]] const char *custom_checks_read(const char *path, custom_check **list);
[[nodiscard]] const char *agent_actions_read(const char *path, agent_action **list);

// The same of the text of a file.
[[nodiscard]] const char *custom_checks_parse(const char *text, size_t length, custom_check **list);
[[nodiscard]] const char *agent_actions_parse(const char *text, size_t length, agent_action **list);

void custom_checks_free(custom_check *list); // takes absent
void agent_actions_free(agent_action *list); // takes absent

bool has_pattern(const custom_check *check);

using custom_checks_guard = guard<custom_check, custom_checks_free>;
using agent_actions_guard = guard<agent_action, agent_actions_free>;
