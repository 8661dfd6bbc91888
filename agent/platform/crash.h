// The trace that a fault leaves: a dump beside the program, or a core where the host writes one, and one line
// of text.
//
// The handler runs in a process that may be damaged: it does as little as it can, and no dialog waits for
// anybody.
#pragma once

#include <cstddef>
#include <cstdint>

struct crash_ops {
    // Has faults, and bad calls of the runtime, end in crash_filter or crash_signalled. `folder` is the
    // program's, empty where that is not known.
    void (*install)(const char *folder);

    // The library that writes dumps, its function, and the file. Optional: absent where the host writes them.
    void *(*LoadLibraryA)();
    void *(*GetProcAddress)(void *library);
    intptr_t (*CreateFileA)(const char *path); // NO_FILE behind a failure
    bool (*MiniDumpWriteDump)(void *function, intptr_t file, void *exception_pointers);
    void (*CloseHandle)(intptr_t file);
    void (*FreeLibrary)(void *library); // takes absent
    void (*MessageBoxA)(const char *title, const char *text);
};

extern const crash_ops crash_ops_host;
extern const crash_ops *crash_host;

// Installs the handler, which tells `callback` in one line what has happened.
void install_crash_handler(void (*callback)(const char *text));

// Reports the line to the host's event log, and logs it.
void crash_message(const char *text);

// For hosts that write dumps by that library: writes one. Returns 1 when it was written, so that the process
// ends, else 0, which leaves the fault to the host.
int32_t crash_filter(void *exception_pointers);

// For hosts that write a core by themselves: tells where it lands, where the host allows one.
void crash_signalled();

// Forgets the callback, for tests.
void crash_reset();
