#include "probes/os/task_stat.h"

#include "platform/text.h"
#include "probes/os/host_text.h"

#include <algorithm>
#include <cstring>

// The name stands in brackets and may hold any byte, brackets, too: it ends with the last one.
static const char *read_head(const char *at, const char *end, task_stat *out) {
    size_t digits = strspn(at, "0123456789");
    const char *name = at + digits + 2;
    if (digits == 0 || digits >= sizeof out->id || name > end || at[digits] != ' ' || at[digits + 1] != '(')
        return nullptr;
    const char *behind = end;
    while (behind > name && *behind != ')')
        behind--;
    auto length = static_cast<size_t>(behind - name);
    if (*behind != ')' || length >= sizeof out->name) return nullptr;
    copy_bounded(out->id, at, digits + 1);
    copy_bounded(out->name, name, length + 1);
    std::replace(out->name, out->name + length, '\n', '?');
    return behind + 1;
}

// Priorities and the terminal may be below zero. Such a number stands as it does in two's complement.
static const char *read_field(const char *at, uint64_t *out) {
    at += strspn(at, " ");
    bool negative = *at == '-';
    if (negative) at++;
    if (!read_number(&at, out)) return nullptr;
    if (negative) *out = 0 - *out;
    return at;
}

bool parse_task_stat(const char *at, const char *end, task_stat *out) {
    *out = {};
    at = read_head(at, end, out);
    if (at == nullptr || at[0] != ' ' || at[1] == '\0' || at[2] != ' ') return false;
    at += 2; // the state
    uint64_t unused = 0;
    uint64_t priority = 0;
    uint64_t nice = 0;
    uint64_t *const fields[] = {&out->parent,
                                &unused,
                                &unused,
                                &unused,
                                &unused,
                                &unused, // 4 to 9
                                &out->minor_faults,
                                &unused,
                                &out->major_faults,
                                &unused, // 10 to 13
                                &out->user_time,
                                &out->kernel_time,
                                &unused,
                                &unused,
                                &priority,
                                &nice, // 14 to 19
                                &out->threads,
                                &unused,
                                &out->start,
                                &out->virtual_bytes,
                                &out->resident_pages}; // 20 to 24
    for (uint64_t *field : fields) {
        at = read_field(at, field);
        if (at == nullptr || at > end) return false;
    }
    out->priority = static_cast<int64_t>(priority);
    out->nice = static_cast<int64_t>(nice);
    return true;
}

bool next_task_stat(const char **at, task_stat *out) {
    while (const char *behind = next_line(*at)) {
        const char *line = *at;
        *at = behind;
        if (parse_task_stat(line, behind - 1, out)) return true;
    }
    return false;
}
