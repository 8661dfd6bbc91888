#include "probes/os/memory.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/memory_ops.h"
#include "probes/os/rounding.h"

const memory_ops *memory_host;

namespace {

constexpr uint32_t LENGTH_OF_EX = 64;
constexpr uint32_t LENGTH_ASKED = 56;
constexpr uint32_t LENGTH_ACCEPTED = 32;
constexpr uint32_t DESCRIPTION_FREE_MEMORY = 2;

enum lookup_state { NOT_LOOKED_UP, MISSING, FOUND };

lookup_state status_function;

} // namespace

static bool find_status_function() {
    bool found = false;
    if (!memory_host->GetModuleHandleA("kernel32.dll"))
        agent_log(LOG_TRACE, "Could not get kernel32.dll handle");
    else
        found = memory_host->GlobalMemoryStatusEx != nullptr &&
                memory_host->GetProcAddress("GlobalMemoryStatusEx");
    agent_log(LOG_TRACE, "%s",
              found ? "Using GlobalMemoryStatusEx" : "Could not find GlobalMemoryStatusEx in kernel32.dll");
    return found;
}

static bool have_status_function() {
    if (status_function == NOT_LOOKED_UP) status_function = find_status_function() ? FOUND : MISSING;
    return status_function == FOUND;
}

// The answer counts only with the length of a 32-bit host's record. On a 64-bit host the length asked for
// comes back, and the fallback always fails; that is as it is to be.
static bool get_short_status(memory_status *out) {
    memory_status answer = {.length = LENGTH_ASKED};
    memory_host->GlobalMemoryStatus(&answer);
    if (answer.length != LENGTH_ACCEPTED) return false;
    *out = answer;
    return true;
}

bool get_memory_status(memory_status *out) {
    if (!have_status_function()) return get_short_status(out);
    out->length = LENGTH_OF_EX;
    return memory_host->GlobalMemoryStatusEx(out);
}

static double memory_kilobytes(uint64_t bytes) {
    return static_cast<double>(bytes) * 0.0009765625;
}

static devnode *new_memory(const char *id, const char *name, uint64_t available, uint64_t total) {
    devnode *device = new_scan_device({.id = id,
                                       .name = name,
                                       .comment = name,
                                       .type = TYPE_REAL_CONTINUOUS,
                                       .unit = "kB",
                                       .description = DESCRIPTION_FREE_MEMORY});
    set_range_hint(device, 0, memory_kilobytes(available), memory_kilobytes(total));
    return device;
}

const char *scan_meminfo(devtree *root) {
    agent_log(LOG_TRACE, "In scan_meminfo");
    memory_status status = {};
    if (!get_memory_status(&status)) return "GlobalMemoryStatus call unsupported";
    devnode *found = nullptr;
    put_in_front(&found, new_memory("phys", "Physical memory", status.available_phys, status.total_phys));
    put_in_front(&found,
                 new_memory("swap", "Pagefile space", status.available_page_file - status.available_phys,
                            status.total_page_file - status.total_phys));
    put_in_front(&found,
                 new_memory("virt", "Virtual memory", status.available_page_file, status.total_page_file));
    return offer_devices(root, "mem", "Free Memory", "Free %0r", 0, found);
}

static const char *select_figure(const char *id, const memory_status &status, uint64_t *out) {
    if (text_equal(id, "phys"))
        *out = status.available_phys;
    else if (text_equal(id, "swap"))
        *out = status.available_page_file - status.available_phys; // wraps where there is less of it
    else if (text_equal(id, "virt"))
        *out = status.available_page_file;
    else
        return format_error("Unknown memory type encountered: %s", id);
    return nullptr;
}

const char *check_mem(devnode *device, resnode *result) {
    memory_status status = {};
    if (!get_memory_status(&status)) return "GlobalMemoryStatus() failed!";
    uint64_t figure = 0;
    if (auto *failure = select_figure(device->id, status, &figure)) return failure;
    result->real_value = memory_kilobytes(figure);
    result->value = nearest_integer(result->real_value);
    return nullptr;
}

void memory_reset() {
    status_function = NOT_LOOKED_UP;
}
