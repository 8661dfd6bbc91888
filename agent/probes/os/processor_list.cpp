#include "probes/os/processor_list.h"

#include "probes/os/host_text.h"

#include <algorithm>

uint32_t parse_processor_list(const char *text, uint64_t *out_mask) {
    constexpr uint64_t LIMIT = 1U << 20; // far beyond what a kernel can be built for
    uint32_t count = 0;
    *out_mask = 0;
    uint64_t first = 0;
    while (read_number(&text, &first)) {
        uint64_t last = first;
        if (*text == '-' && (text++, !read_number(&text, &last))) break;
        if (last < first || last >= LIMIT) break;
        count += static_cast<uint32_t>(last - first + 1);
        for (uint64_t i = first; i <= std::min<uint64_t>(last, 63); i++)
            *out_mask |= uint64_t{1} << i;
        if (*text++ != ',') break;
    }
    return count;
}
