#include "probes/os/processes.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/processes_ops.h"
#include "settings/settings.h"

#include <cstring>

const processes_ops *processes_host;

namespace {

constexpr uint32_t FIRST_SNAPSHOT_SIZE = 32768;
// Room for 4,096 ids. This is a fixed ceiling: on a host with more processes the rest are not seen.
constexpr uint32_t PID_TABLE_SIZE = 16384;
constexpr uint32_t MODULE_NAME_SIZE = 128;
constexpr uint32_t DESCRIPTION_PROCESS = 8;

// What a failure of the snapshot's call is told with.
enum snapshot_use { SNAPSHOT_OF_SCAN, SNAPSHOT_OF_CHECK };

using snapshot_guard = guard<uint8_t, heap_free>;

struct pid_table {
    guard<uint32_t, heap_free> ids; // absent where the table cannot be had
    uint32_t count;
};

struct pid_name {
    text_guard text; // absent for a process whose name cannot be had
    bool cut;
};

} // namespace

static bool uses_psapi() {
    return config_in_force != nullptr && config_in_force->use_psapi != 0;
}

static const char *find_snapshot_function() {
    if (!processes_host->GetModuleHandleA("ntdll.dll"))
        return format_error("Couldn't load ntdll.dll: %s", last_error_text());
    if (!processes_host->GetProcAddress("ZwQuerySystemInformation"))
        return format_error("Couldn't locate ZwQuerySystemInformation in ntdll: %s", last_error_text());
    return nullptr;
}

// A check's words promise a fallback. There is none.
static const char *snapshot_failure(snapshot_use use) {
    const char *reason = last_error_text();
    if (use == SNAPSHOT_OF_SCAN) return format_error("Error calling QuerySystemInformation: %s", reason);
    return format_error("Error calling QuerySystemInformation: %s. Falling back to PSAPI", reason);
}

// Doubles the buffer until the host is content; no host is with what does not fit in 32 bits.
static const char *take_snapshot(snapshot_use use, snapshot_guard *snapshot, process_walk *walk) {
    if (auto *failure = find_snapshot_function()) return failure;
    for (uint32_t size = FIRST_SNAPSHOT_SIZE; size != 0; size *= 2) {
        agent_log(LOG_TRACE, "Allocating %d bytes of memory in scan_processes", static_cast<int>(size));
        snapshot->reset();
        snapshot->reset(heap_array<uint8_t>(size));
        if (*snapshot == nullptr) break;
        int32_t status =
            processes_host->ZwQuerySystemInformation(SYSTEM_PROCESS_INFORMATION_CLASS, snapshot->get(), size);
        if (status == STATUS_INFO_LENGTH_MISMATCH) continue;
        if (status < 0) return snapshot_failure(use);
        *walk = {.snapshot = snapshot->get(),
                 .size = size,
                 .address = reinterpret_cast<uintptr_t>(snapshot->get())};
        return nullptr;
    }
    return "No free memory in scan_processes";
}

// A name is cut at what an id may have on the wire, where a longer one would keep the whole tree back.
static bool next_name(process_walk *walk, char name[IMAGE_NAME_SIZE]) {
    if (!processes_host->next_process(walk, name, IMAGE_NAME_SIZE)) return false;
    if (name[0] == '\0') copy_bounded(name, "Idle", IMAGE_NAME_SIZE);
    name[NAME_LIMIT] = '\0';
    return true;
}

static devnode *new_process(const char *name) {
    return new_scan_device({.id = name,
                            .name = name,
                            .comment = "",
                            .type = TYPE_BITMAP,
                            .unit = "",
                            .description = DESCRIPTION_PROCESS});
}

static const char *offer_processes(devtree *root, devnode *found) {
    return offer_devices(root, "proc", "Process Presence", nullptr, 0, found);
}

static void report(resnode *result, bool available) {
    result->value = available ? 1 : 0;
    text_replace(&result->comment, text_copy(available ? "Available" : "Missing"));
}

// Of a process whose name is but a beginning, any name that goes on so may be the whole one. A host that is
// short of disks has such processes now and then: they are not missing.
static bool is_named(const char *name, bool cut, const char *id) {
    if (!cut) return text_equal_folded(name, id);
    char beginning[IMAGE_NAME_SIZE];
    copy_bounded(beginning, id, strlen(name) + 1);
    return text_equal_folded(name, beginning);
}

const char *scan_processes(devtree *root) {
    agent_log(LOG_TRACE, "In scan_processes");
    if (uses_psapi()) return scan_processes_old(root);
    snapshot_guard snapshot;
    process_walk walk;
    if (auto *failure = take_snapshot(SNAPSHOT_OF_SCAN, &snapshot, &walk)) return failure;
    devnode *found = nullptr;
    char name[IMAGE_NAME_SIZE];
    while (next_name(&walk, name))
        put_in_front(&found, new_process(name));
    snapshot.reset();
    return offer_processes(root, found);
}

const char *check_process(devnode *device, resnode *result) {
    if (uses_psapi()) return check_process_old(device, result);
    snapshot_guard snapshot;
    process_walk walk;
    if (auto *failure = take_snapshot(SNAPSHOT_OF_CHECK, &snapshot, &walk)) return failure;
    bool available = false;
    char name[IMAGE_NAME_SIZE];
    while (!available && next_name(&walk, name))
        available = is_named(name, walk.cut, device->id);
    report(result, available);
    return nullptr;
}

// ---- the old way

static pid_table get_pid_table() {
    guard<uint32_t, heap_free> ids(heap_array<uint32_t>(PID_TABLE_SIZE / sizeof(uint32_t)));
    if (ids == nullptr) {
        agent_log(LOG_WARNING, "Out of memory in scan_processes");
        return {};
    }
    uint32_t returned = 0;
    if (!processes_host->EnumProcesses(ids.get(), PID_TABLE_SIZE, &returned)) {
        agent_log(LOG_WARNING, "EnumProcesses() call failed in scan_processes");
        return {};
    }
    if (returned > PID_TABLE_SIZE) returned = PID_TABLE_SIZE;
    return {.ids = std::move(ids), .count = static_cast<uint32_t>(returned / sizeof(uint32_t))};
}

static bool read_base_name(process *handle, uint32_t id, char *name) {
    process_module *first = nullptr;
    uint32_t needed = 0;
    if (!processes_host->EnumProcessModules(handle, &first, 8, &needed)) {
        agent_log(LOG_ERROR, "EnumProcessModules failed! (pid: %d, error: %d, retbytes: %d)",
                  static_cast<int>(id), static_cast<int>(last_error()), static_cast<int>(needed));
        return false;
    }
    if (!processes_host->GetModuleBaseNameA(handle, first, name, MODULE_NAME_SIZE)) {
        agent_log(LOG_WARNING, "GetModuleBaseName() call failed in scan_processes");
        return false;
    }
    return true;
}

static bool is_cut(const process *handle) {
    return processes_host->name_is_cut != nullptr && processes_host->name_is_cut(handle);
}

static pid_name get_pid_name(uint32_t id) {
    process *handle = processes_host->OpenProcess(PROCESS_QUERY_AND_READ, id);
    pid_name name = {.text = text_guard(heap_array<char>(MODULE_NAME_SIZE)), .cut = false};
    if (handle == nullptr) {
        if (id != 0) agent_log(LOG_WARNING, "Warning: Unable to open pid %u", id);
        return {};
    }
    if (name.text == nullptr)
        agent_log(LOG_ERROR, "Out of memory! When allocating new module name");
    else if (read_base_name(handle, id, name.text.get()))
        name.cut = is_cut(handle);
    else
        name.text.reset();
    processes_host->CloseHandle(handle);
    return name;
}

const char *scan_processes_old(devtree *root) {
    agent_log(LOG_TRACE, "In scan_processes_old");
    pid_table table = get_pid_table();
    if (table.ids == nullptr) return "Error reading process list";
    devnode *found = nullptr;
    for (uint32_t i = 0; i < table.count; i++)
        if (pid_name name = get_pid_name(table.ids.get()[i]); name.text != nullptr)
            put_in_front(&found, new_process(name.text.get()));
    return found != nullptr ? offer_processes(root, found) : nullptr;
}

const char *check_process_old(devnode *device, resnode *result) {
    pid_table table = get_pid_table();
    if (table.ids == nullptr) return "Error reading process list";
    bool available = false;
    for (uint32_t i = 0; i < table.count && !available; i++) {
        uint32_t id = table.ids.get()[i];
        pid_name name = id != 0 ? get_pid_name(id) : pid_name();
        available = name.text != nullptr && is_named(name.text.get(), name.cut, device->id);
    }
    report(result, available);
    return nullptr;
}
