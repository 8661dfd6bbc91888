//     handle N         writes whether it has a handle of this number
//     input            writes whether it has a standard input
#include "custom/child/child.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

extern "C" {
int _dowildcard = 0;
}

void prepare_streams() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

int own_number() {
    return static_cast<int>(GetCurrentProcessId());
}

void start_copy(const child_words &words, bool own_session) {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, sizeof path);
    std::string line = std::string("\"") + path + "\"";
    for (const std::string &word : words)
        line += " \"" + word + "\"";
    STARTUPINFOA start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process = {};
    DWORD flags = own_session ? DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP : 0;
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr, &start,
                        &process))
        exit(97);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
}

void ignore_termination() {
    SetConsoleCtrlHandler(nullptr, TRUE);
}

void close_output() {
    CloseHandle(GetStdHandle(STD_OUTPUT_HANDLE));
    CloseHandle(GetStdHandle(STD_ERROR_HANDLE));
}

bool host_word(const std::string &word, size_t *at, const child_words &words) {
    if (word == "handle") {
        auto handle = reinterpret_cast<HANDLE>(static_cast<intptr_t>(std::stoll(words.at((*at)++))));
        DWORD flags = 0;
        printf("handle %d\n", GetHandleInformation(handle, &flags) != 0);
    } else if (word == "input") {
        printf("input %d\n", GetStdHandle(STD_INPUT_HANDLE) != nullptr);
    } else {
        return false;
    }
    fflush(stdout);
    return true;
}
