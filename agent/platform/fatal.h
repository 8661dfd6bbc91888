// The end in error, and the host's event log.
#pragma once

#include <cstddef>
#include <cstdint>

enum : uint32_t { EVENT_ID_ERROR = 0xC0000004, EVENT_ID_INFORMATION = 0x80000005 };

struct event_ops {
    // A handle on the event source, or absent; then nothing is reported.
    void *(*RegisterEventSourceA)(const char *source);
    void (*ReportEventA)(void *source, bool error, uint32_t event_id, const char *message);
    void (*DeregisterEventSource)(void *source);
};

struct process_ops {
    // Ends the process. Does not return.
    void (*exit)(int status);
    uint32_t (*GetCurrentProcessId)();
    // The path of the program that runs, cut at `size` bytes with their end. False where it cannot be had.
    bool (*GetModuleFileNameA)(char *buffer, size_t size);
    const char *program_suffix; // of the names of programs
};

extern const event_ops event_ops_host;
extern const event_ops *event_host;
extern const process_ops process_ops_host;
extern const process_ops *process_host;

// What fatal runs before it ends the process: the clean-up of the platform's half of start-up. Harmless while
// unset.
extern void (*fatal_cleanup)();

// Logs "Fatal error: %s", reports to the event log, cleans up and ends the process with status 1.
[[noreturn]] void fatal(const char *message);

// Ends the process.
[[noreturn]] void process_exit(int status);

// One entry in the host's event log; nothing happens where its source cannot be opened.
void event_report(const char *message, int informational);
