// The launcher as a service of Windows NT, or on a console.
#pragma once

#include <windows.h>

inline constexpr const char *SERVICE_NAME = "tnagent";

// How long a stop may last: all patience with the agent, and some seconds for the launcher itself.
extern const DWORD STOP_LIMIT_MS;

// What launcher_ops says of them.
int serve_win32(int (*body)());
const char *install_win32(const char *const *words);
const char *uninstall_win32();

// Signalled once for each stop that the host wants.
HANDLE stop_wanted();
