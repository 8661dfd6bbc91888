#include "custom/processes.h"

#include <windows.h>

#include <tlhelp32.h>

bool process_lives(int number) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(number));
    if (process == nullptr) return false;
    bool lives = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return lives;
}

void end_process(int number) {
    HANDLE process = OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(number));
    if (process == nullptr) return;
    TerminateProcess(process, 1);
    CloseHandle(process);
}

int count_threads() {
    HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Thread32First(list, &entry); more; more = Thread32Next(list, &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId();
    CloseHandle(list);
    return count;
}

// A process that has ended is kept by those who have its handle, who are counted as handles.
int count_children() {
    return 0;
}

bool keeps_closed_output() {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}
