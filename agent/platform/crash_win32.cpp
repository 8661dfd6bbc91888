#include "platform/crash.h"

#include "platform/files.h"

#include <cstdlib>
#include <windows.h>

#include <dbghelp.h>

using write_dump_function = decltype(&MiniDumpWriteDump);

static constexpr DWORD ACCESS_VIOLATION = 0xC0000005;

static LONG WINAPI filter(EXCEPTION_POINTERS *pointers) {
    return crash_filter(pointers);
}

// A bad call of the runtime ends the same way as a fault of memory.
static void raise_access_violation() {
    RaiseException(ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
}

static void invalid_parameter(const wchar_t *, const wchar_t *, const wchar_t *, unsigned, uintptr_t) {
    raise_access_violation();
}

static void install(const char *) {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    SetUnhandledExceptionFilter(filter);
    _set_invalid_parameter_handler(invalid_parameter);
    _set_purecall_handler(raise_access_violation);
}

static void *load_library() {
    return LoadLibraryA("dbghelp.dll");
}

static void *find_function(void *library) {
    return reinterpret_cast<void *>(GetProcAddress(static_cast<HMODULE>(library), "MiniDumpWriteDump"));
}

static intptr_t create_file(const char *path) {
    HANDLE file = CreateFileA(path, GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    return file != INVALID_HANDLE_VALUE ? reinterpret_cast<intptr_t>(file) : NO_FILE;
}

static bool write_dump(void *function, intptr_t file, void *exception_pointers) {
    MINIDUMP_EXCEPTION_INFORMATION exception = {
        .ThreadId = GetCurrentThreadId(),
        .ExceptionPointers = static_cast<EXCEPTION_POINTERS *>(exception_pointers),
        .ClientPointers = TRUE,
    };
    auto *write = reinterpret_cast<write_dump_function>(function);
    return write(GetCurrentProcess(), GetCurrentProcessId(), reinterpret_cast<HANDLE>(file), MiniDumpNormal,
                 &exception, nullptr, nullptr) != FALSE;
}

static void close_file(intptr_t file) {
    CloseHandle(reinterpret_cast<HANDLE>(file));
}

static void free_library(void *library) {
    if (library != nullptr) FreeLibrary(static_cast<HMODULE>(library));
}

static void message_box(const char *title, const char *text) {
    MessageBoxA(nullptr, text, title, MB_OK);
}

const crash_ops crash_ops_host = {
    .install = install,
    .LoadLibraryA = load_library,
    .GetProcAddress = find_function,
    .CreateFileA = create_file,
    .MiniDumpWriteDump = write_dump,
    .CloseHandle = close_file,
    .FreeLibrary = free_library,
    .MessageBoxA = message_box,
};
