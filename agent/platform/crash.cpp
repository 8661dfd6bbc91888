#include "platform/crash.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/files.h"
#include "platform/text.h"

#include <cstdio>
#include <cstring>

const crash_ops *crash_host;

namespace {

constexpr size_t PATH_SIZE = 260;    // of a dump
constexpr size_t FOLDER_SIZE = 1024; // of the program
constexpr size_t MESSAGE_SIZE = 520 + 1;
constexpr const char *DETECTED =
    "An application error has been detected. Please report this error and submit the dump "
    "file in '%s' along with your error report";

void (*callback)(const char *text);
char core_message[FOLDER_SIZE + MESSAGE_SIZE]; // made ahead of the fault

struct dump_result {
    char message[MESSAGE_SIZE];
    bool written;
};

} // namespace

static void program_folder(char out[FOLDER_SIZE]) {
    if (!process_host->GetModuleFileNameA(out, FOLDER_SIZE)) out[0] = '\0';
    const_cast<char *>(file_name_of(out))[0] = '\0';
}

void install_crash_handler(void (*told)(const char *text)) {
    char folder[FOLDER_SIZE];
    char core[FOLDER_SIZE + 8];
    callback = told;
    program_folder(folder);
    snprintf(core, sizeof core, "%score", folder);
    snprintf(core_message, sizeof core_message, DETECTED, core);
    crash_host->install(folder);
}

void crash_message(const char *text) {
    event_report(text, 0);
    agent_log(LOG_DETAIL, "%s", text);
}

void crash_signalled() {
    if (callback != nullptr) callback(core_message);
}

// The last point of the whole path counts, in a folder's name too.
static void dump_path(char out[PATH_SIZE]) {
    if (!process_host->GetModuleFileNameA(out, PATH_SIZE)) {
        copy_bounded(out, "marquent.dmp", PATH_SIZE);
        return;
    }
    char *point = strrchr(out, '.');
    char *end = point != nullptr ? point : out + strlen(out);
    copy_bounded(end, ".dmp", PATH_SIZE - static_cast<size_t>(end - out));
}

static void write_dump(void *function, void *exception_pointers, dump_result *out) {
    char path[PATH_SIZE];
    dump_path(path);
    intptr_t file = crash_host->CreateFileA(path);
    if (file == NO_FILE) {
        snprintf(out->message, MESSAGE_SIZE, "Failed to create dump file '%s' (error %d)", path,
                 static_cast<int>(last_error()));
        return;
    }
    out->written = crash_host->MiniDumpWriteDump(function, file, exception_pointers);
    if (out->written)
        snprintf(out->message, MESSAGE_SIZE, DETECTED, path);
    else
        snprintf(out->message, MESSAGE_SIZE, "Failed to save dump file to '%s' (error %d)", path,
                 static_cast<int>(last_error()));
    crash_host->CloseHandle(file);
}

static void try_dump(void *library, void *exception_pointers, dump_result *out) {
    if (library == nullptr) {
        copy_bounded(out->message, "dbghelp.dll not found", MESSAGE_SIZE);
        return;
    }
    void *function = crash_host->GetProcAddress(library);
    if (function == nullptr)
        copy_bounded(out->message, "dbghelp.dll too old", MESSAGE_SIZE);
    else
        write_dump(function, exception_pointers, out);
}

int32_t crash_filter(void *exception_pointers) {
    dump_result result = {};
    void *library = crash_host->LoadLibraryA();
    try_dump(library, exception_pointers, &result);
    if (callback != nullptr)
        callback(result.message);
    else
        crash_host->MessageBoxA("Dump generated", result.message);
    crash_host->FreeLibrary(library);
    return result.written ? 1 : 0;
}

void crash_reset() {
    callback = nullptr;
}
