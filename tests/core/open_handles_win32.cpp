#include "core/open_handles.h"

#include <windows.h>

int count_open_handles() {
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return static_cast<int>(count);
}
