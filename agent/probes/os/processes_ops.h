// What the process checks ask of a host: a snapshot of all processes, or their ids and one process at a time.
#pragma once

#include <cstddef>
#include <cstdint>

// The class of the process snapshot.
inline constexpr uint32_t SYSTEM_PROCESS_INFORMATION_CLASS = 5;
// The buffer is too small for it.
inline constexpr auto STATUS_INFO_LENGTH_MISMATCH = static_cast<int32_t>(0xC0000004);

// Query-information and read rights.
inline constexpr uint32_t PROCESS_QUERY_AND_READ = 0x410;

// The longest image name, its end included.
inline constexpr uint32_t IMAGE_NAME_SIZE = 260;

// A walk over a snapshot, which is in its host's own language.
struct process_walk {
    const uint8_t *snapshot;
    uint32_t size;
    uint64_t address;  // where the snapshot lay when it was taken: records may point into it
    uint32_t position; // of the next record
    bool ended;
    bool cut; // the name that was given last is but a beginning: the whole one cannot be had now
};

struct process;        // an open process
struct process_module; // a program or a library in it

// Each call that fails leaves its reason in last_error().
struct processes_ops {
    // Whether the module, and a function of this table in it, is there on this host.
    bool (*GetModuleHandleA)(const char *module);
    bool (*GetProcAddress)(const char *function);
    // Takes the snapshot: 0 for success, a negative status for a failure. What is not filled stays clear.
    int32_t (*ZwQuerySystemInformation)(uint32_t information_class, uint8_t *buffer, uint32_t size);
    // The name of the next process, in the system's code page; empty for one without a name. False behind the
    // last one.
    bool (*next_process)(process_walk *walk, char *name, uint32_t size);

    // The ids of all processes, as many as fit; `*out_returned` is in bytes.
    bool (*EnumProcesses)(uint32_t *ids, uint32_t size, uint32_t *out_returned);
    process *(*OpenProcess)(uint32_t rights, uint32_t id);
    // The first module of a process is its program. `*out_needed` is the bytes that all modules take.
    bool (*EnumProcessModules)(process *handle, process_module **out_first, uint32_t size,
                               uint32_t *out_needed);
    bool (*GetModuleBaseNameA)(process *handle, process_module *module, char *name, uint32_t size);
    // Whether the name that was given is but a beginning. Absent where no host cuts names.
    bool (*name_is_cut)(const process *handle);
    void (*CloseHandle)(process *handle);
};

extern const processes_ops processes_ops_host;
extern const processes_ops *processes_host;
