#include "probes/os/swaps.h"

#include "platform/text.h"
#include "probes/os/host_text.h"

#include <algorithm>
#include <cstring>

// "name type size used priority"; the headline has no numbers.
static bool read_swap_line(const char *at, swap_line *out) {
    *out = {};
    size_t length = strcspn(at, " \t\n");
    if (length == 0 || length >= sizeof out->name) return false;
    copy_bounded(out->name, at, length + 1);
    at += length;
    at += strspn(at, " \t");
    at += strcspn(at, " \t\n");
    return read_number(&at, &out->size) && read_number(&at, &out->used);
}

bool next_swap_line(const char **at, swap_line *out) {
    while (const char *behind = next_line(*at)) {
        const char *line = *at;
        *at = behind;
        if (read_swap_line(line, out)) return true;
    }
    return false;
}

bool parse_swap_use(const char *swaps, const char *name, uint64_t *out_used, uint64_t *out_size) {
    bool all = text_equal(name, ALL_SWAPS);
    bool found = false;
    swap_line line;
    *out_used = 0;
    *out_size = 0;
    while (next_swap_line(&swaps, &line)) {
        if (!all && !text_equal(line.name, name)) continue;
        *out_used += std::min(line.used, line.size);
        *out_size += line.size;
        found = true;
    }
    return found;
}
