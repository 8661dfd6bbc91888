#include "platform/crash.h"

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/fatal.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <windows.h>

// A child process, which is this program with a filter of its own, installs the handler and does something
// that it does not survive. What the handler tells goes to a file beside the program.
static std::string own_program() {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, sizeof path);
    return path;
}

static std::string beside(const char *suffix) {
    std::string path = own_program();
    return path.substr(0, path.rfind('.')) + suffix;
}

static void tell(const char *text) {
    std::ofstream(beside(".told")) << text;
}

static bool is_child() {
    return getenv("TN_FAULT") != nullptr;
}

static void begin_child() {
    process_host = &process_ops_host;
    error_host = &error_ops_host;
    crash_host = &crash_ops_host;
    install_crash_handler(tell);
}

static std::string told() {
    std::ifstream file(beside(".told"));
    return {std::istreambuf_iterator<char>(file), {}};
}

static DWORD run_child(const std::string &test) {
    std::filesystem::remove(beside(".told"));
    std::filesystem::remove(beside(".dmp"));
    std::string command = "\"" + own_program() + "\" --gtest_filter=" + test + " --gtest_catch_exceptions=0";
    STARTUPINFOA start = {.cb = sizeof start};
    PROCESS_INFORMATION process;
    SetEnvironmentVariableA("TN_FAULT", "1");
    EXPECT_TRUE(CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start,
                               &process));
    SetEnvironmentVariableA("TN_FAULT", nullptr);
    WaitForSingleObject(process.hProcess, 60000);
    DWORD code = 0;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return code;
}

static void expect_dump() {
    EXPECT_EQ(
        told(),
        "An application error has been detected. Please report this error and submit the dump file in '" +
            beside(".dmp") + "' along with your error report");
    std::ifstream dump(beside(".dmp"), std::ios::binary);
    char start[4] = {};
    dump.read(start, sizeof start);
    EXPECT_EQ(std::string(start, sizeof start), "MDMP");
}

TEST(win32_fault, of_memory_leaves_a_dump) {
    test_host host;
    if (is_child()) {
        begin_child();
        *const_cast<volatile int *>(reinterpret_cast<int *>(8)) = 1;
        ExitProcess(0);
    }
    EXPECT_EQ(run_child("win32_fault.of_memory_leaves_a_dump"), 0xC0000005);
    expect_dump();
}

TEST(win32_fault, of_the_runtime_leaves_a_dump) {
    test_host host;
    if (is_child()) {
        begin_child();
        FILE *none = nullptr;
        _fseeki64(none, 0, SEEK_SET); // a bad call, which the runtime reports
        ExitProcess(0);
    }
    EXPECT_EQ(run_child("win32_fault.of_the_runtime_leaves_a_dump"), 0xC0000005);
    expect_dump();
}
