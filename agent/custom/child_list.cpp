#include "custom/child_list.h"

#include "platform/text.h"

int32_t next_child(const char **at) {
    const char *end = *at;
    uint64_t child = parse_decimal(*at, &end);
    if (*end != ' ' || child == 0 || child > INT32_MAX) return 0;
    *at = end;
    return static_cast<int32_t>(child);
}
